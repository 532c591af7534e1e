// A domain's catch-all address.
#include "fixture.h"

using CatchAll = InWorld;

static const std::string Set = "UpdateCatchAllAddress(d;c)", Drop = "RemoveCatchAllAddress(d)";
static const std::string Get = "RetreiveCatchAllAddress(d)";

// clang-format off
TEST_F(CatchAll, LineIsKeptInTheMailboxMap)
{
    const std::string line = "@d d/mail/inbox/c@d\n";
    const std::string others = "u@d d/mail/inbox/u@d\n@D d\n@d\n@dd x\n@d\ta b\nx @d\n";
    const std::string crowd = "@d d/mail/inbox/x@d\n\n" + others + "@d\tx\n@d y";
    const Variant map = {"vmaps.txt", ".CABackup", "vmaps-temp.txt", "root 644 qvadmin's",
                         published("vmaps.txt"), false, false, false};
    check(map, {
        {Set, nullptr, "331", nullptr, Kept, "File does not exist."},
        {Set, "a b\n\n", "332", ("a b\n" + line).c_str(), Rewritten},
        {Set, crowd.c_str(), "332", (line + others + line + line).c_str(), Rewritten},
        {Drop, nullptr, "333", nullptr, Kept, "File does not exist."},
        {Drop, crowd.c_str(), "333", others.c_str(), Rewritten,
         "@d d/mail/inbox/x@d\n@d\tx\n@d y\n"},
        {Drop, "\na b", "333", "a b\n", Rewritten},
        {Get, nullptr, "0", nullptr, Kept, "File does not exist."},
        {Get, "@D x/y\n\n@d x\n@d\t/y\n@d z/w\n", "1 y", nullptr, Kept, "@d x\n@d\t/y"},
        {Get, "@d d/mail/inbox/c@d", "1 c", nullptr, Kept, "@d d/mail/inbox/c@d"},
        {Get, "@D x/y\n\nu@d x/y@d", "0", nullptr, Kept},
        {"IsCatchAllExists(none)", nullptr, "true", nullptr, Kept},
    });
}

TEST_F(CatchAll, RowIsKeptInTheTable)
{
    const std::string there = "@d|x@d\nu@d|u@d\n", two = "@d|x@d\n@d|y@d\n", self = "u@d|u@d\n";
    const std::string is = "query=select destination from  virtual_aliases where source = '@d'\n";
    const std::string get = "query=select destination from virtual_aliases where source='@d'";
    check({{Set, "", "332", "@d|c@d\n",
            is + "found=0\nquery=insert into virtual_aliases values ('@d', 'c@d')"},
           {Set, there, "332", "@d|c@d\n" + self, is + "found=1\n"
            "query=update virtual_aliases set destination='c@d' where source='@d'"},
           {Drop, there, "333", self, "query=delete from virtual_aliases where source = '@d'"},
           {Get, two, "1 y@d", two, get},
           {Get, "", "1", "", get},
           {"IsCatchAllExists(d)", there, "true", there, is + "found=1"}});
}
