// A domain's catch-all address, and what holds on both backends alike.
#include "fixture.h"

using CatchAll = InWorld;

TEST_F(CatchAll, LineIsKeptInTheMailboxMap)
{
    const Variant map = {"vmaps.txt", ".CABackup", "vmaps-temp.txt", "root 644 qvadmin's", published("vmaps.txt"), false, false, false};
    Variant query = map;
    query.commands = "";
    const std::string set = "UpdateCatchAllAddress(d;c)", drop = "RemoveCatchAllAddress(d)", get = "RetreiveCatchAllAddress(d)", none = "File does not exist.\n";
    const std::string crowd = "@d d/mail/inbox/x@d\n\nu@d d/mail/inbox/u@d\n@D d\n@d\tx\n@d\n@dd x\n@d\ta b\nx @d\n@d y", rest = "u@d d/mail/inbox/u@d\n@D d\n@d\n@dd x\n@d\ta b\nx @d\n";
    const std::string line = "@d d/mail/inbox/c@d\n", replaced = line + "u@d d/mail/inbox/u@d\n@D d\n" + line + "@d\n@dd x\n@d\ta b\nx @d\n" + line;
    check(map, {{set, nullptr, "331", nullptr, Kept, none},
                {set, "a b\n\n", "332", ("a b\n" + line).c_str(), Rewritten},
                {set, "", "332", line.c_str(), Rewritten},
                {set, crowd.c_str(), "332", replaced.c_str(), Rewritten},
                {drop, nullptr, "333", nullptr, Kept, none},
                {drop, "\na b\n", "333", "a b\n", Rewritten},
                {drop, crowd.c_str(), "333", rest.c_str(), Rewritten, "@d d/mail/inbox/x@d\n@d\tx\n@d y\n"}});
    check(query, {{get, nullptr, "0", nullptr, Kept, none},
                  {get, crowd.c_str(), "1 x", crowd.c_str(), Kept, "@d d/mail/inbox/x@d\n"},
                  {get, "@d x\n@d\t/y\n@d z/w\n", "1 y", "@d x\n@d\t/y\n@d z/w\n", Kept, "@d x\n@d\t/y\n"},
                  {get, "@D x/y\n\nu@d x/y", "0", "@D x/y\n\nu@d x/y", Kept}});
    EXPECT_EQ(run(Files, "IsCatchAllExists(none)"), "true");
    EXPECT_EQ(happened, "");
}

TEST_F(CatchAll, RowIsKeptInTheTable)
{
    const std::string asked = "query=select destination from  virtual_aliases where source = '@d'\n", there = "@d|x@d\nu@d|u@d\n", insert = asked + "found=0\nquery=insert into virtual_aliases values ('@d', 'c@d')\n";
    const std::string update = asked + "found=1\nquery=update virtual_aliases set destination='c@d' where source='@d'\n", drop = "query=delete from virtual_aliases where source = '@d'\n", get = "query=select destination from virtual_aliases where source='@d'\n";
    check({{"UpdateCatchAllAddress(d;c)", "", "332", "@d|c@d\n", insert},
           {"UpdateCatchAllAddress(d;c)", there, "332", "@d|c@d\nu@d|u@d\n", update},
           {"RemoveCatchAllAddress(d)", there, "333", "u@d|u@d\n", drop},
           {"RemoveCatchAllAddress(d)", "", "333", "", drop},
           {"RetreiveCatchAllAddress(d)", "@d|x@d\n@d|y@d\n", "1 y@d", "@d|x@d\n@d|y@d\n", get},
           {"RetreiveCatchAllAddress(d)", "", "1", "", get},
           {"IsCatchAllExists(d)", there, "true", there, asked + "found=1\n"},
           {"IsCatchAllExists(d)", "u@d|u@d\n", "false", "u@d|u@d\n", asked + "found=0\n"}});
    check({{"UpdateCatchAllAddress(d;c)", there, "331", there, update}, {"RemoveCatchAllAddress(d)", there, "334", there, drop}}, SqlReadOnly);
}

// One corpus for both backends, where they must agree: each call and its answer, in order.
TEST_F(CatchAll, BackendsAgree)
{
    const VectorString corpus[] = {
        {"CreateMailDomain(d.com;admin;secret;2048)", "303"}, {"CreateMailbox(d.com;user;1024)", "305"},
        {"CreateMailDomain(e.com;other;secret;4096)", "303"}, {"GetMailboxList(d.com)", "0 admin user"},
        {"GetMailboxCount(d.com)", "2"}, {"IsMailboxExists(USER@d.com)", "true"}, {"IsMailboxExists(x@d.com)", "false"},
        {"RetrieveDomainQuota(d.com)", "1 3"}, {"VQuota(user@d.com;3072;UpdateQuota)", "325"}, {"RetrieveDomainQuota(d.com)", "1 5"},
        {"VAlias(user@d.com;a@x.org;AddAlias)", "327"}, {"VAlias(user@d.com;b@x.org;AddAlias)", "0"}, {"RetrieveAlias(user@d.com)", "a@x.org"},
        {"VAlias(user@d.com;b@x.org;UpdateAlias)", "321"}, {"RetrieveAlias(user@d.com)", "b@x.org"}, {"VList(list@d.com;a@x,b@y;AddList)", "310"},
        {"VList(list@d.com;a@x;AddList)", "309"}, {"GetLists(d.com)", "0 list"}, {"VList(list@d.com;c@z;UpdateList)", "323"},
        {"GetListSettings(list@d.com)", "0 c@z"}, {"UpdateCatchAllAddress(d.com;admin)", "332"}, {"UpdateCatchAllAddress(d.com;user)", "332"},
        {"UpdateMailbox(user@d.com;new;UpdatePasswd)", "321"}, {"VAlias(user@d.com;;DeleteAlias)", "329"}, {"RetrieveAlias(user@d.com)", ""},
        {"VList(list@d.com;;DeleteList)", "319"}, {"GetLists(d.com)", "0"}, {"RemoveCatchAllAddress(d.com)", "333"},
        {"DeleteMailbox(user;d.com)", "307"}, {"GetMailboxList(d.com)", "0 admin"}, {"IsMailboxExists(user@d.com)", "false"},
        {"DeleteMailDomain(d.com)", "317"}, {"GetMailboxList(d.com)", "0"}, {"GetMailboxList(e.com)", "0 other"}, {"RetrieveDomainQuota(e.com)", "1 4"}};
    sql("do 0");
    for (const Backend backend : {Files, Sql}) {
        emptyWorld();
        for (const VectorString& line : corpus)
            EXPECT_EQ(run(backend, line[0]), line[1]) << line[0] << " " << backend;
    }
}
