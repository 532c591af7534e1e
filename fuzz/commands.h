// The commands of qvmailctl as they run in main(), within the target.
#ifndef QV_FUZZ_COMMANDS_H
#define QV_FUZZ_COMMANDS_H

#include "Commands.h"
#include "Output.h"
#include "Results.h"
#include "world.h"

#include <cstdlib>

// What the command answers; a refusal is a status and a sentence.
inline Answer answerOf(const Object& object, const Given& given, const Options& options = {})
{
    setenv("PATH", "/usr/bin", 1); // which each session makes longer
    Session session(options);
    try {
        Answer answer = object.actions.front().run(session, given);
        return answer.result.is_null() ? session.changes.answer(options.dryRun) : answer;
    } catch (const Stop& refusal) {
        return {{}, {}, refusal.status, refusal.sentence};
    }
}

inline std::string textOf(const Answer& answer)
{
    std::string text = answer.sentence;
    for (const std::string& line : answer.lines)
        text += line + "\n";
    return text;
}

inline Answer imported(const std::string& document)
{
    constexpr const char* File = "/run/document.json";
    put(File, document);
    Options options;
    options.takeOver = true;
    Given given;
    given.name = File;
    return answerOf(importCommand(), given, options);
}

// What is hosted can be moved to an empty host, and is the same there.
inline void requireToMove()
{
    const std::string document = textOf(answerOf(exportCommand(), {}));
    emptyWorld();
    const Answer answer = imported(document);
    require(answer.status == Status::Done, answer.sentence);
    const std::string moved = textOf(answerOf(exportCommand(), {}));
    require(lowerCase(moved) == lowerCase(document), "another document: " + moved);
}

#endif
