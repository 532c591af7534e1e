// plain_call files|mysql OPERATION ARG ... - calls an operation of the library as a host without transactions
#include "create_mailbox.h"

#include <iostream>
#include <map>
#include <vector>

using Words = std::vector<std::string>;

// clang-format off
#define CALL(name, ...) \
    {#name, [](PostfixManager& m, const Words& a) { return m.Postfix_##name(__VA_ARGS__); }}

static const std::map<std::string, int (*)(PostfixManager& m, const Words& a)> Operations = {
    {"CreateMailbox", [](PostfixManager& m, const Words& a) {
        return createMailbox(m, a.at(0), a.at(1), "changed", a.at(2)); }},
    {"VList", [](PostfixManager& m, const Words& a) {
        VectorString members(a.begin() + 2, a.end());
        return m.Postfix_VList(a.at(0), &members, a.at(1)); }},
    CALL(CreateMailDomain, a.at(0), a.at(1), "changed", a.at(2)),
    CALL(DeleteMailDomain, a.at(0)),
    CALL(DeleteMailbox, a.at(0), a.at(1)),
    CALL(UpdateMailbox, a.at(0), a.at(1), a.at(2)),
    CALL(VQuota, a.at(0), a.at(1), a.at(2)),
    CALL(VAlias, a.at(0), a.at(1), a.at(2)),
    CALL(UpdateCatchAllAddress, a.at(0), a.at(1)),
    CALL(RemoveCatchAllAddress, a.at(0)),
};
// clang-format on

int main(int argc, char** argv)
{
    const Words words(argv + 1, argv + argc);
    CQVTrackManager tracing;
    PostfixManager manager(&tracing, "", words.at(0), "127.0.0.1", "3306", "qvmail", "secret",
                           "qvmail");
    std::cout << Operations.at(words.at(1))(manager, {words.begin() + 2, words.end()}) << std::endl;
}
