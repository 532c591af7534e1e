#include "init/Setup.h"

Answer Setup::answer() const
{
    Answer answer;
    if (dryRun)
        answer.result["dry_run"] = true;
    const auto tell = [&](const char* key, const std::string& before,
                          const std::vector<std::string>& all) {
        answer.result[key] = all;
        for (const std::string& one : all)
            answer.lines.push_back(before + one);
    };
    const std::string mark = dryRun ? "dry run: " : "";
    tell("made", mark + "made ", made);
    tell("kept", "kept ", kept);
    tell("changed", mark + "changed ", changed);
    if (changesNothing())
        answer.lines.emplace_back("nothing was changed");
    tell("to_do", "to do: ", toDo);
    return answer;
}
