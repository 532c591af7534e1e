// The alias map and table: forwarders, mailing lists and the questions about them.
#include "fixture.h"

using Aliases = InWorld;

static const std::string Map = "valias.txt";
static const std::string Any = std::to_string(Untouched);

TEST_F(Aliases, ForwardsAreKeptInTheMap)
{
    const Variant map = {Map, ".qvbackup", "valias-temp.txt", "root 644 mail's", published(Map), false, true, true};
    const std::string add = "VAlias(bob@d;to@x;AddAlias)", drop = "VAlias(bob@d;;DeleteAlias)", update = "VAlias(bob@d;to@x;UpdateAlias)";
    const std::string crowd = "a b\n\nbob@d x\njimbob@d.com y,z\nc bob@d\nc\tbob@d x\nBob@d x\n\nz";
    check(map, {
                   {add, nullptr, "327", "bob@d to@x\n", Made},
                   {add, "a b\n\n", "327", "a b\n\nbob@d to@x\n", Appended},
                   {add, "", "327", "bob@d to@x\n", Appended},
                   {add, "a b\njimbob@d x", "0", "a b\njimbob@d x", Kept},
                   {add, "bob@d\n", "0", "bob@d\n", Kept},
                   {add, "x\tbob@d y\n", "0", "x\tbob@d y\n", Kept},
                   {add, "a bob@d\nBob@d x\n", "327", "a bob@d\nBob@d x\nbob@d to@x\n", Appended},
                   {"VAlias(;a;AddAlias)", "\n", "0", "\n", Kept},
                   {drop, nullptr, "329", nullptr, PublishedOnly},
                   {drop, crowd.c_str(), "329", "a b\nc bob@d\nBob@d x\nz\n", Rewritten},
                   {drop, "\n", "329", "", Rewritten},
                   {update, nullptr, "1", nullptr, Kept},
                   {update, crowd.c_str(), "321", "a b\nbob@d to@x\nbob@d to@x\nc bob@d\nbob@d to@x\nBob@d x\nz\n", Rewritten},
                   {update, "\na b", "321", "a b\nbob@d to@x\n", Rewritten},
                   {"VAlias(bob@d;x;addAlias)", "bob@d x\n\n", Any, "bob@d x\n\n", PublishedOnly},
                   {"VAlias(bob@d;x;)", nullptr, Any, nullptr, PublishedOnly},
               });
}

static std::string drop(const std::string& source) { return "query=delete from virtual_aliases where source = '" + source + "'"; }
static std::string insert(const std::string& rows) { return "query=insert into virtual_aliases values " + rows + "\n"; }

TEST_F(Aliases, ForwardsAreKeptInTheTable)
{
    const std::string asked = "query=select source from  virtual_aliases where source = 'u@d' and destination != 'u@d'\n";
    const std::string dropSelf = drop("u@d") + " and destination = 'u@d'\n", dropAll = drop("u@d") + "\n";
    const std::string add = "VAlias(u@d;a@x;AddAlias)", self = "u@d|u@d\nv@d|u@d\n", forward = "u@d|u@d\nu@d|b\n";
    check({{add, self, "327", "v@d|u@d\nu@d|a@x\n", asked + "found=0\n" + dropSelf + insert("('u@d','a@x')")},
           {add, "", "327", "u@d|a@x\n", asked + "found=0\n" + dropSelf + insert("('u@d','a@x')")},
           {add, forward, "0", forward, asked + "found=1\n"},
           {"VAlias(u@d;;DeleteAlias)", forward, "329", "u@d|u@d\n", dropAll + insert("('u@d','u@d')")},
           {"VAlias(u@d;a@x;UpdateAlias)", forward + "v@d|c\n", "321", "v@d|c\nu@d|a@x\n", dropAll + insert("('u@d','a@x')")},
           {"VAlias(u@d;a@x;UpdateAlias)", "", "321", "u@d|a@x\n", dropAll + insert("('u@d','a@x')")}});
    check({{add, self, "0", self, asked + "found=0\n" + dropSelf}, {"VAlias(u@d;;DeleteAlias)", self, "0", self, dropAll}}, SqlReadOnly);
    const std::string tooLong = "VAlias(u@d;" + std::string(400, 'x') + ";UpdateAlias)"; // the old row is gone
    check({{tooLong, forward, "0", "", dropAll + insert("('u@d','" + std::string(400, 'x') + "')")}});
    for (const std::string call : {"VAlias(u@d;a;addAlias)", "VList(l@d;a1,b2;)"}) { // left connected
        EXPECT_EQ(run(Sql, call), "0");
        EXPECT_EQ(happened, traced(call));
        EXPECT_EQ(openConnections(), 1);
    }
}

TEST_F(Aliases, ListsAreKeptInTheMap)
{
    const Variant map = {Map, ".qvbackup", "valias-temp.txt", "root 644 mail's", published(Map), true, true, true};
    const std::string add = "VList(l@d;a@x, b@y;AddList)", drop = "VList(l@d;;DeleteList)", update = "VList(l@d;a&b c;UpdateList)";
    const std::string crowd = "a b\n\nl@d x\nmail@d.com y,z\nc l@d\nL@d x\n\nz";
    check(map, {
                   {add, nullptr, "310", "l@d a@x, b@y\n", Made},
                   {add, "a b\n\n", "310", "a b\n\nl@d a@x, b@y\n", Appended},
                   {add, "c l@d", "310", "c l@dl@d a@x, b@y\n", Appended},
                   {add, "mail@d.com y\n", "309", "mail@d.com y\n", Kept},
                   {"VList(l@d;;AddList)", nullptr, "310", "l@d\n", Made},
                   {"VList(;a;AddList)", "\n", "309", "\n", Kept},
                   {drop, nullptr, "0", nullptr, Kept},
                   {drop, crowd.c_str(), "319", "a b\nc l@d\nL@d x\nz\n", Rewritten},
                   {update, nullptr, "1", nullptr, Kept},
                   {update, crowd.c_str(), "323", "a b\nl@d a b c\nl@d a b c\nc l@d\nL@d x\nz\n", Rewritten},
                   {update, "\na b\n\n", "323", "a b\n", Rewritten},
                   {"VList(l@d;a;addList)", "l@d x\n\n", Any, "l@d x\n\n", PublishedOnly},
                   {"VList(l@d;a;)", nullptr, Any, nullptr, PublishedOnly},
               });
}

TEST_F(Aliases, ListsAreKeptInTheTable)
{
    const std::string asked = "query=select source from  virtual_aliases where source = 'l@d'\n", dropAll = drop("l@d") + "\n";
    const auto added = [&](const std::string& parsed, const std::string& rows) { return parsed + asked + "found=0\n" + insert(rows); };
    check({{"VList(l@d;a1, b2 ,c3;AddList)", "", "310", "l@d|a1\nl@d|b2\nl@d|c3\n", added("ptr=a1, b2 ,c3\nptr= b2 ,c3\nptr=c3\n", "('l@d','a1'),('l@d','b2'),('l@d','c3')")},
           {"VList(l@d;a1,q,b2;AddList)", "", "310", "l@d|a1\nl@d|q\n", added("ptr=a1,q,b2\nptr=q,b2\n", "('l@d','a1'),('l@d','q')")},
           {"VList(l@d;a1, q ,b2;AddList)", "", "310", "l@d|a1\nl@d|q\nl@d|b2\n", added("ptr=a1, q ,b2\nptr= q ,b2\nptr=b2\n", "('l@d','a1'),('l@d','q'),('l@d','b2')")},
           {"VList(l@d;a1,;AddList)", "", "310", "l@d|a1\n", added("ptr=a1,\nptr=\n", "('l@d','a1')")},
           {"VList(l@d;a1,, \t,b2  &c3;AddList)", "", "310", "l@d|a1\nl@d|b2  \n",
            added("ptr=a1,, \t,b2  \nptr=, \t,b2  \nptr= \t,b2  \nptr=b2  \n", "('l@d','a1'),('l@d','b2  ')")},
           {"VList(l@d;a1;AddList)", "l@d|l@d\n", "309", "l@d|l@d\n", "ptr=a1\n" + asked + "found=1\n"},
           {"VList(l@d;a1,b2;UpdateList)", "l@d|x\nm@d|y\n", "323", "m@d|y\nl@d|a1\nl@d|b2\n", "ptr=a1,b2\nptr=b2\n" + dropAll + insert("('l@d','a1'),('l@d','b2')")},
           {"VList(l@d;a1;DeleteList)", "l@d|x\nl@d|y\nm@d|y\n", "319", "m@d|y\n", dropAll}});
    check({{"VList(l@d;a1;UpdateList)", "l@d|x\n", "1", "l@d|x\n", "ptr=a1\n" + dropAll},
           {"VList(l@d;a1;AddList)", "", "0", "", "ptr=a1\n" + asked + "found=0\n" + insert("('l@d','a1')")},
           {"VList(l@d;;DeleteList)", "l@d|x\n", "0", "l@d|x\n", dropAll}}, SqlReadOnly);
    for (const std::string members : {"", " , ", " "})
        for (const std::string action : {"AddList", "UpdateList"}) { // no member: nothing is inserted
            EXPECT_EQ(run(Sql, "VList(l@d;" + members + ";" + action + ")"), "0");
            EXPECT_EQ(happened.find("insert"), std::string::npos);
        }
}

TEST_F(Aliases, QueriesReadTheMap)
{
    const std::string forwards = "info@d bob@d\n\nlist@d bob@d,a@d\nbob@d x@y\nsales jimbob@d.com\nbob@d\nx@y  bob@d\nx\tbob@d\n", lines = "l@d a1, b2\nml@d a\n\nl@d c,d  e \nl@d\nl@da x\nL@d x\n";
    const std::string lists = "l@d.com a\nu@d.com b\n\nU@d.com c\nu@d.com.au c\nm@e v@d.com\nn@e f\nbare\td.com\n@d.com c\nu@d.com";
    put({{"vshadow", "u@d.com:h\nx:h"}});
    for (const auto& [call, map, answer] : std::vector<std::array<std::string, 3>>{
             {"GetAliasList(bob@d)", forwards, "0 info sales jimbob x"}, {"GetAliasList(nobody)", forwards, "0"},
             {"RetrieveAlias(bob@d)", "a b\n\njimbob@d  \t y,z w\nbob@d x\n", "y,z w"}, {"RetrieveAlias(bob@d)", "bob@d\nbob@d x\n", ""},
             {"RetrieveAlias(bob@d)", "c bob@d\nBob@d x\n", ""}, {"RetrieveAlias()", "\nb c\n", ""},
             {"GetListSettings(l@d)", lines, "0 a1, b2 c,d  e "}, {"GetListSettings(l)", lines, "0"},
             {"GetLists(d.com)", lists, "0 l u m bare\td.com "}, {"GetLists(none)", lists, "0"},
             {"IsVAliasExists(nobody)", lists, "true"}, {"IsVListExists(nobody)", lists, "true"}}) {
        put({{Map, map}});
        EXPECT_EQ(run(Files, call), answer) << call;
        EXPECT_EQ(happened, traced(call));
    }
    EXPECT_EQ(run(SqlNoServer, "GetAliasList(d.com)"), "0 m"); // the map, whatever the backend
    emptyWorld();
    for (const auto& [call, answer] : World{{"GetAliasList(a)", "63"}, {"RetrieveAlias(a)", ""}, {"GetLists(d)", "63"}, {"GetListSettings(l)", "63"}})
        EXPECT_EQ(run(Files, call), answer);
}

TEST_F(Aliases, QueriesReadTheTable)
{
    const std::string lists = "query=select distinct(virtual_aliases.source) from virtual_aliases, virtual_users where virtual_aliases.source not in "
                              "(select email from virtual_users where email like '%@d') and virtual_aliases.source like '%@d' and virtual_aliases.source!='@d'\n";
    const std::string members = "query=select destination from virtual_aliases where source= 'l@d'\n", listed = "query=select source from  virtual_aliases where source = 'l@d'\n";
    const std::string one = "query=select destination from virtual_aliases where source = 'u@d' and destination != 'u@d'\n";
    const std::string is = "query=select source from  virtual_aliases where source = 'u@d' and destination != 'u@d'\n";
    const std::string rows = "u@d|h|1\nl@d|a\nl@d|b\n@d|u@d\nu@d|u@d\nm@d|c\nl@e|c\n", forward = "u@d|u@d\nu@d|a\nu@d|b\n", self = "u@d|u@d\n";
    check({{"GetLists(d)", rows, "0 l m", rows, lists}, {"GetLists(d)", "l@d|a\n", "0", "l@d|a\n", lists},
           {"GetListSettings(l@d)", rows, "0 a b", rows, members}, {"GetListSettings(l@d)", "", "0", "", members},
           {"IsVListExists(l@d)", rows, "true", rows, listed + "found=1\n"}, {"IsVListExists(l@d)", self, "false", self, listed + "found=0\n"},
           {"RetrieveAlias(u@d)", forward, "a", forward, one + "Forward Address=a\n"}, {"RetrieveAlias(u@d)", self, "", self, one},
           {"IsVAliasExists(u@d)", forward, "true", forward, is + "found=1\n"}, {"IsVAliasExists(u@d)", self, "false", self, is + "found=0\n"}});
}
