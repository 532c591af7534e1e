// plain_call files|mysql OPERATION ARG ... - calls an operation of the library as a host without transactions
#include "create_mailbox.h"

#include <functional>
#include <iostream>
#include <map>
#include <vector>

using Words = std::vector<std::string>;

int main(int argc, char** argv)
{
    const std::map<std::string, std::function<int(PostfixManager&, const Words&)>> operations = {
        {"CreateMailDomain",
         [](auto& m, auto& a) {
             return m.Postfix_CreateMailDomain(a.at(0), a.at(1), "changed", a.at(2));
         }},
        {"DeleteMailDomain", [](auto& m, auto& a) { return m.Postfix_DeleteMailDomain(a.at(0)); }},
        {"CreateMailbox",
         [](auto& m, auto& a) { return createMailbox(m, a.at(0), a.at(1), "changed", a.at(2)); }},
        {"DeleteMailbox",
         [](auto& m, auto& a) { return m.Postfix_DeleteMailbox(a.at(0), a.at(1)); }},
        {"UpdateMailbox",
         [](auto& m, auto& a) { return m.Postfix_UpdateMailbox(a.at(0), a.at(1), a.at(2)); }},
        {"VQuota", [](auto& m, auto& a) { return m.Postfix_VQuota(a.at(0), a.at(1), a.at(2)); }},
        {"VAlias", [](auto& m, auto& a) { return m.Postfix_VAlias(a.at(0), a.at(1), a.at(2)); }},
        {"VList",
         [](auto& m, auto& a) {
             VectorString members(a.begin() + 2, a.end());
             return m.Postfix_VList(a.at(0), &members, a.at(1));
         }},
        {"UpdateCatchAllAddress",
         [](auto& m, auto& a) { return m.Postfix_UpdateCatchAllAddress(a.at(0), a.at(1)); }},
        {"RemoveCatchAllAddress",
         [](auto& m, auto& a) { return m.Postfix_RemoveCatchAllAddress(a.at(0)); }},
    };
    const Words words(argv + 1, argv + argc);
    CQVTrackManager tracing;
    PostfixManager manager(&tracing, "", words.at(0), "127.0.0.1", "3306", "qvmail", "secret",
                           "qvmail");
    std::cout << operations.at(words.at(1))(manager, {words.begin() + 2, words.end()}) << std::endl;
}
