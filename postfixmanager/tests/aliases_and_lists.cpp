// The alias map and table: forwarders, mailing lists and the questions about them.
#include "fixture.h"

using Aliases = InWorld;

static const std::string Any = std::to_string(Untouched);
static const std::string Deleted = "query=delete from virtual_aliases where source = ";
static const std::string Inserted = "\nquery=insert into virtual_aliases values ";

// clang-format off
static const Variant Map = {"valias.txt", ".qvbackup", "valias-temp.txt", "root 644 mail's",
                            published("valias.txt"), false, true, true};

TEST_F(Aliases, ForwardsAreKeptInTheMap)
{
    const std::string add = "VAlias(bob@d;to@x;AddAlias)", drop = "VAlias(bob@d;;DeleteAlias)";
    const std::string set = "VAlias(bob@d;to@x;UpdateAlias)";
    const char crowd[] = "a b\n\nbob@d x\njimbob@d.com y,z\nc bob@d\nc\tbob@d x\nBob@d x\n\nz";
    check(Map, {
        {add, nullptr, "327", "bob@d to@x\n", Made},
        {add, "a bob@d\n\nBob@d x", "327", "a bob@d\n\nBob@d xbob@d to@x\n", Appended},
        {add, "a b\njimbob@d x", "0", nullptr, Kept},
        {add, "x\tbob@d\n", "0", nullptr, Kept},
        {drop, nullptr, "329", nullptr, PublishedOnly},
        {drop, crowd, "329", "a b\nc bob@d\nBob@d x\nz\n", Rewritten},
        {drop, "\na b", "329", "a b\n", Rewritten},
        {set, nullptr, "1", nullptr, Kept},
        {set, crowd, "321", "a b\nbob@d to@x\nbob@d to@x\nc bob@d\nbob@d to@x\nBob@d x\nz\n",
         Rewritten},
        {set, "\na b", "321", "a b\nbob@d to@x\n", Rewritten},
        {"VAlias(bob@d;x;addAlias)", "bob@d x\n\n", Any, nullptr, PublishedOnly},
    });
}

TEST_F(Aliases, ForwardsAreKeptInTheTable)
{
    const std::string is = "query=select source from  virtual_aliases where source = 'u@d' and "
                           "destination != 'u@d'\n";
    const std::string add = "VAlias(u@d;a@x;AddAlias)", drop = "VAlias(u@d;;DeleteAlias)";
    const std::string set = "VAlias(u@d;a@x;UpdateAlias)", tooLong(400, 'x');
    const std::string self = "u@d|u@d\nv@d|u@d\n", forward = "u@d|u@d\nu@d|b\n";
    const std::string deleted = Deleted + "'u@d'", row = Inserted + "('u@d','a@x')";
    check({{add, self, "327", "v@d|u@d\nu@d|a@x\n",
            is + "found=0\n" + deleted + " and destination = 'u@d'" + row},
           {add, forward, "0", forward, is + "found=1"},
           {drop, forward, "329", "u@d|u@d\n", deleted + Inserted + "('u@d','u@d')"},
           {set, self, "321", "v@d|u@d\nu@d|a@x\n", deleted + row},
           {"VAlias(u@d;" + tooLong + ";UpdateAlias)", forward, "0", "",
            deleted + Inserted + "('u@d','" + tooLong + "')"}});
}

TEST_F(Aliases, ListsAreKeptInTheMap)
{
    const std::string add = "VList(l@d;a@x, b@y;AddList)", drop = "VList(l@d;;DeleteList)";
    const std::string set = "VList(l@d;a&b c;UpdateList)";
    const char crowd[] = "a b\n\nl@d x\nmail@d.com y,z\nc l@d\nL@d x\n\nz";
    Variant map = Map;
    map.copiesAlways = true;
    check(map, {
        {add, nullptr, "310", "l@d a@x, b@y\n", Made},
        {add, "c l@d", "310", "c l@dl@d a@x, b@y\n", Appended},
        {add, "mail@d.com y\n", "309", nullptr, Kept},
        {"VList(l@d;;AddList)", nullptr, "310", "l@d\n", Made},
        {drop, nullptr, "0", nullptr, Kept},
        {drop, crowd, "319", "a b\nc l@d\nL@d x\nz\n", Rewritten},
        {drop, "\na b", "319", "a b\n", Rewritten},
        {set, nullptr, "1", nullptr, Kept},
        {set, crowd, "323", "a b\nl@d a b c\nl@d a b c\nc l@d\nL@d x\nz\n", Rewritten},
        {set, "\na b\n\n", "323", "a b\n", Rewritten},
        {"VList(l@d;a;addList)", nullptr, Any, nullptr, PublishedOnly},
    });
}

TEST_F(Aliases, ListsAreKeptInTheTable)
{
    const std::string is = "query=select source from  virtual_aliases where source = 'l@d'\n";
    const std::string add = "VList(l@d;a1;AddList)", taken = "l@d|l@d\n";
    const std::string deleted = Deleted + "'l@d'", row = Inserted + "('l@d','a1')";
    const struct {
        std::string members, parsed, rows, values;
    } lists[] = {
        {"a1,q,b2", "ptr=a1,q,b2\nptr=q,b2\n", "l@d|a1\nl@d|q\n", "('l@d','a1'),('l@d','q')"},
        {"a1, q ,b2,", "ptr=a1, q ,b2,\nptr= q ,b2,\nptr=b2,\nptr=\n",
         "l@d|a1\nl@d|q\nl@d|b2\n", "('l@d','a1'),('l@d','q'),('l@d','b2')"},
        {"a1,, \t,b2  &c", "ptr=a1,, \t,b2  \nptr=, \t,b2  \nptr= \t,b2  \nptr=b2  \n",
         "l@d|a1\nl@d|b2  \n", "('l@d','a1'),('l@d','b2  ')"}};
    for (const auto& list : lists)
        check({{"VList(l@d;" + list.members + ";AddList)", "", "310", list.rows,
                list.parsed + is + "found=0" + Inserted + list.values}});
    check({{add, taken, "309", taken, "ptr=a1\n" + is + "found=1"},
           {"VList(l@d;;AddList)", taken, "309", taken, is + "found=1"}, // before its members count
           {"VList(l@d;;AddList)", "", "0", "", is + "found=0"},
           {"VList(l@d;a1;UpdateList)", "l@d|x\nm@d|y\n", "323", "m@d|y\nl@d|a1\n",
            "ptr=a1\n" + deleted + row},
           {"VList(l@d;;UpdateList)", taken, "0", taken, ""}, // no member: the rows stay
           {"VList(l@d; , ;UpdateList)", taken, "0", taken, "ptr= , \nptr= "},
           {"VList(l@d;;DeleteList)", "l@d|x\nl@d|y\nm@d|y\n", "319", "m@d|y\n", deleted}});
    check({{add, "", "0", "", "ptr=a1\n" + is + "found=0" + row}}, SqlReadOnly);
}

TEST_F(Aliases, QueriesReadTheMap)
{
    const std::string forwards = "info@d bob@d\n\nlist@d bob@d,a@d\nbob@d x@y\nhr jimbob@d.com\n"
                                 "bob@d\nx  bob@d\ny\tbob@d\ninfo@d bob@d";
    const std::string members = "l@d a1, b2\nml@d a\n\nl@d c,d  b2 \nl@d\nl@da x\nL@d x\n";
    const std::string lists = "l@d.com a\nu@d.com b\n\nU@d.com c\nu@d.com.au c\nm@e v@d.com\n"
                              "l@e d.com\nn@e f\nb\td.com\nu@d.com";
    const std::string reads[][3] = {
        {"GetAliasList(bob@d)", forwards, "0 info hr jimbob x  bob info"},
        {"GetAliasList( bob@d)", forwards, "0 info x  bob info"},
        {"RetrieveAlias(bob@d)", "c bob@d\nBob@d x\n\njimbob@d  \t y,z w \t\nbob@d x", "y,z w \t"},
        {"RetrieveAlias(bob@d)", "bob@d\nbob@d x\n", ""},
        {"RetrieveAlias()", "\nbob@d x\n", ""}, // an empty line has an empty name
        {"GetListSettings(l@d)", members, "0 a1, b2 c,d  b2 "},
        {"GetLists(d.com)", lists, "0 l u m l b\td.com"},
        {"IsVAliasExists(nobody)", lists, "true"},
        {"IsVListExists(nobody)", lists, "true"}};
    put({{"vshadow", "u@d.com:h\nx:h"}});
    for (const auto& [call, map, answer] : reads) {
        put({{"valias.txt", map}});
        EXPECT_EQ(run(Files, call), answer) << call;
        EXPECT_EQ(happened, traced(call));
    }
    EXPECT_EQ(run(SqlNoServer, "GetAliasList(d.com)"), "0 m l"); // the map, whatever the backend
    emptyWorld();
    EXPECT_EQ(run(Files, "GetAliasList(a)") + run(Files, "RetrieveAlias(a)"), "63");
    EXPECT_EQ(run(Files, "GetLists(d)") + run(Files, "GetListSettings(l)"), "6363");
}

// One key in so many is a mailbox in other letters, every key comes twice, and one is longer than what
// is read and kept at a time.
TEST_F(Aliases, ListsAreToldFromForwardsAmongManyKeys)
{
    const std::string longName = std::string(2000000, 'k');
    for (const int share : {3, 1000, 40000}) {
        std::string map = longName + "@d d\n", repeated, accounts, lists, repeatedLists;
        for (int i = 1; i <= 40000; ++i) {
            const std::string number = std::to_string(i);
            map += "n" + number + "@d x\n";
            repeated += "N" + number + "@d x\n";
            accounts += (i % share == 0 ? "N" : "other") + number + "@D:h\n";
            lists += i % share == 0 ? "" : " n" + number;
            repeatedLists += i % share == 0 ? "" : " N" + number;
        }
        map += repeated;
        lists += repeatedLists;
        put({{"valias.txt", map}, {"vshadow", accounts}});
        EXPECT_TRUE(run(Files, "GetLists(d)") == "0 " + longName + lists) << share; // too long to show
        put({{"vshadow", accounts + longName + "@d:h\n"}});
        EXPECT_TRUE(run(Files, "GetLists(d)") == "0" + lists) << share;
    }
}

// With the schema and the settings of config/ the server joins no list with all mailboxes.
TEST_F(Aliases, ListsOfATableTakeAFewStepsForEachRow)
{
    constexpr int Count = 300;
    const std::string numbers = " from seq_1_to_" + std::to_string(Count);
    sql("insert into virtual_users select concat('u', seq, '@d'), 'h', 0" + numbers);
    for (const std::string name : {"u", "l", "m"})
        sql("insert into virtual_aliases select concat('" + name + "', seq, '@d'), 'x'" + numbers);
    const auto steps = [] {
        return std::stoi(sql("select cast(sum(variable_value) as int) from "
                             "information_schema.global_status where variable_name like 'handler%'"));
    };
    const int before = steps();
    const std::string lists = run(Sql, "GetLists(d)");
    EXPECT_EQ(std::count(lists.begin(), lists.end(), ' '), 2 * Count);
    EXPECT_LT(steps() - before, 30 * Count);
}

TEST_F(Aliases, QueriesReadTheTable)
{
    const std::string lists =
        "query=select distinct(virtual_aliases.source) from virtual_aliases, virtual_users where "
        "virtual_aliases.source not in (select email from virtual_users where email like '%@d') "
        "and virtual_aliases.source like '%@d' and virtual_aliases.source!='@d'";
    const std::string from = " virtual_aliases where source = ", is = "query=select source from ";
    const std::string forwards = from + "'u@d' and destination != 'u@d'\n";
    const std::string one = "query=select destination from" + forwards;
    const std::string rows = "u@d|h|1\nl@d|a\nl@d|b\n@d|u@d\nu@d|u@d\nm@d|c\nl@e|c\n";
    const std::string forward = "u@d|u@d\nu@d|a\nu@d|b\n", self = "u@d|u@d\n";
    check({{"GetLists(d)", rows, "0 l m", rows, lists},
           {"GetLists(d)", "l@d|a\n", "0", "l@d|a\n", lists}, // joined with no mailbox
           {"GetListSettings(l@d)", rows, "0 a b", rows,
            "query=select destination from virtual_aliases where source= 'l@d'"},
           {"IsVListExists(l@d)", rows, "true", rows, is + from + "'l@d'\nfound=1"},
           {"RetrieveAlias(u@d)", forward, "a", forward, one + "Forward Address=a"},
           {"RetrieveAlias(u@d)", self, "", self, one},
           {"IsVAliasExists(u@d)", forward, "true", forward, is + forwards + "found=1"}});
}
