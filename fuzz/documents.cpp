// Documents of import: what one says is hosted afterwards, nothing is amiss then, and an export tells
// the same.
#include "commands.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    emptyWorld();
    put(QVCONFFILE, "DovecotLDA \"yes\"\n");
    const Answer answer = imported(std::string(reinterpret_cast<const char*>(data), size));
    if (answer.status != Status::Done) {
        require(answer.status == Status::Refused && get(VPASSWDFILE).empty(), answer.sentence);
        return 0;
    }
    const Answer check = answerOf(checkCommand(), {});
    for (const Json& finding : check.result["findings"]) // this machine has no servers
        require(finding["place"].get<std::string>().find(VMAPDIR "/v") != 0 ||
                    finding["kind"] == "alias-astray",
                finding.dump());
    const Answer again = imported(textOf(answerOf(exportCommand(), {})));
    require(again.status == Status::Done && again.lines.empty(), "changes: " + textOf(again));
    requireToMove();
    return 0;
}
