// A domain's catch-all address.
#include "fixture.h"

using CatchAll = InWorld;

// clang-format off
TEST_F(CatchAll, LineIsKeptInTheMailboxMap)
{
    const std::string set = "UpdateCatchAllAddress(d;c)", drop = "RemoveCatchAllAddress(d)";
    const std::string get = "RetreiveCatchAllAddress(d)", line = "@d d/mail/inbox/c@d\n";
    const std::string others = "u@d d/mail/inbox/u@d\n@D d\n@d\n@dd x\n@d\ta b\nx @d\n";
    const std::string crowd = "@d d/mail/inbox/x@d\n\n" + others + "@d\tx\n@d y";
    const Variant map = {"vmaps.txt", ".CABackup", "vmaps-temp.txt", "root 644 qvadmin's",
                         "publish vmaps.txt", false, false, false};
    check(map, {
        {set, nullptr, "331", nullptr, Kept, "File does not exist."},
        {set, "a b\n\n", "332", ("a b\n" + line).c_str(), Rewritten},
        {set, "", "332", line.c_str(), Rewritten},
        {set, crowd.c_str(), "332", (line + others + line + line).c_str(), Rewritten},
        {drop, nullptr, "333", nullptr, Kept, "File does not exist."},
        {drop, "\na b\n", "333", "a b\n", Rewritten},
        {drop, crowd.c_str(), "333", others.c_str(), Rewritten,
         "@d d/mail/inbox/x@d\n@d\tx\n@d y\n"},
        {get, nullptr, "0", nullptr, Kept, "File does not exist."},
        {get, crowd.c_str(), "1 x", nullptr, Kept, "@d d/mail/inbox/x@d"},
        {get, "@d x\n@d\t/y\n@d z/w\n", "1 y", nullptr, Kept, "@d x\n@d\t/y"},
        {get, "@D x/y\n\nu@d x/y", "0", nullptr, Kept},
    });
    EXPECT_EQ(run(Files, "IsCatchAllExists(none)"), "true");
}

TEST_F(CatchAll, RowIsKeptInTheTable)
{
    const std::string set = "UpdateCatchAllAddress(d;c)", drop = "RemoveCatchAllAddress(d)";
    const std::string there = "@d|x@d\nu@d|u@d\n", two = "@d|x@d\n@d|y@d\n", self = "u@d|u@d\n";
    const std::string is = "query=select destination from  virtual_aliases where source = '@d'\n";
    const std::string insert = "query=insert into virtual_aliases values ('@d', 'c@d')";
    const std::string update =
        "query=update virtual_aliases set destination='c@d' where source='@d'";
    const std::string remove = "query=delete from virtual_aliases where source = '@d'";
    const std::string get = "query=select destination from virtual_aliases where source='@d'";
    check({{set, "", "332", "@d|c@d\n", is + "found=0\n" + insert},
           {set, there, "332", "@d|c@d\nu@d|u@d\n", is + "found=1\n" + update},
           {drop, there, "333", self, remove},
           {drop, "", "333", "", remove},
           {"RetreiveCatchAllAddress(d)", two, "1 y@d", two, get},
           {"RetreiveCatchAllAddress(d)", "", "1", "", get},
           {"IsCatchAllExists(d)", there, "true", there, is + "found=1"},
           {"IsCatchAllExists(d)", self, "false", self, is + "found=0"}});
    check({{set, there, "331", there, is + "found=1\n" + update}, {drop, there, "334", there,
        remove}},
          SqlReadOnly);
}
