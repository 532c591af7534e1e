// The quota map and column, the delivery agent's quota fields, quota queries.
#include "fixture.h"

using Quotas = InWorld;

static const std::string Map = "vquota.txt", Copy = "vquota.txt.qvbackup";

static std::string called(const std::string& call) { return traced(call) + copied(Map); }

TEST_F(Quotas, MapIsAddedToAndRewritten)
{
    const Variant map = {Map, ".qvbackup", "vquota-temp.txt", "root 644 mail's", published(Map), true, true, true};
    const std::string add = "VQuota(u@d.com;50;AddQuota)", drop = "VQuota(u@d.com;9;DeleteQuota)", update = "VQuota(u@d.com;-1;UpdateQuota)";
    const std::string crowd = "a\t1\n\nu@d.com\t2\nbu@d.com.au\t3\nx\tu@d.com\ny u@d.com\n\nz";
    Variant newMap = map;
    newMap.keepsErrNo = false;
    check(newMap, {{add, nullptr, "0", "u@d.com\t50\n", Made}, {"VQuota(u@d.com;;AddQuota)", nullptr, "0", "u@d.com\t\n", Made}});
    check(map, {
                   {add, "a\t1\n\n", "0", "a\t1\n\nu@d.com\t50\n", Appended},
                   {add, "", "0", "u@d.com\t50\n", Appended},
                   {add, "x\nu@d.com\t50\n", "1", "x\nu@d.com\t50\n", Kept},
                   {add, "bu@d.com.au\t1", "1", "bu@d.com.au\t1", Kept},
                   {add, "x\tu@d.com\n", "1", "x\tu@d.com\n", Kept},
                   {add, "x u@d.com\nu@d.com 1", "1", "x u@d.com\nu@d.com 1", Kept},
                   {add, " u@d.com\nx u@d.com\nu@d.co m\n", "0", " u@d.com\nx u@d.com\nu@d.co m\nu@d.com\t50\n", Appended},
                   {add, "U@d.com\n", "0", "U@d.com\nu@d.com\t50\n", Appended},
                   {"VQuota(;5;AddQuota)", "", "1", "", Kept},
                   {drop, nullptr, "1", nullptr, Kept},
                   {drop, crowd.c_str(), "0", "a\t1\ny u@d.com\nz\n", Rewritten},
                   {drop, "\na\n", "0", "a\n", Rewritten},
                   {update, nullptr, "1", nullptr, Kept},
                   {update, crowd.c_str(), "325", "a\t1\nu@d.com\t-1\nu@d.com\t-1\nu@d.com\t-1\ny u@d.com\nz\n", Rewritten},
                   {"VQuota(u@d.com;5;deleteQuota)", "u@d.com\t2\n\n", std::to_string(Untouched), "u@d.com\t2\n\n", PublishedOnly},
               });
    // Nothing to update: the line is added by a call of its own, which copies and publishes by itself.
    const std::string nested = called(update) + called("VQuota(u@d.com;-1;AddQuota)") + published(Map);
    const World made = {{Map, "root 644 mail's"}}, added = {{Map, "a\nu@d.com\t-1\n"}, {Copy, "a\n"}};
    const World leftOver = {{Map, "a\n"}, {"vquota-temp.txt", "zu@d.com\t7\n"}}; // matches once it is in the map
    check({{update, {{Map, "\na\n"}}, "325", added, nested + published(Map), 325, made},
           {update, leftOver, "325", {{Map, "zu@d.com\t7\na\n"}, {Copy, "zu@d.com\t7\na\n"}, {"vquota-temp.txt", "gone"}},
            called(update) + called("VQuota(u@d.com;-1;AddQuota)") + published(Map), 325, made}});
}

TEST_F(Quotas, ColumnIsSet)
{
    const std::string rows = "U@D.com|h|7\nv@d.com|h|8\n";
    const auto set = [](const std::string& quota) { return "query=update virtual_users set quota = '" + quota + "' where email = 'u@d.com'\n"; };
    check({{"VQuota(u@d.com;9;DeleteQuota)", rows, "0", "U@D.com|h|0\nv@d.com|h|8\n", set("0")},
           {"VQuota(u@d.com;9;UpdateQuota)", rows, "325", "U@D.com|h|9\nv@d.com|h|8\n", set("9")},
           {"VQuota(u@d.com;-1;UpdateQuota)", rows, "325", "U@D.com|h|0\nv@d.com|h|8\n", set("0")},
           {"VQuota(u@d.com;9;UpdateQuota)", "", "325", "", set("9")},
           {"VQuota(u@d.com;x;UpdateQuota)", rows, "1", rows, set("x")}});
    for (const std::string action : {"AddQuota", "updateQuota", ""}) { // nothing to run, and left connected
        TestManager manager(Sql);
        EXPECT_EQ(run(manager, "VQuota(u@d.com;9;" + action + ")"), "1");
        EXPECT_EQ(happened, traced("VQuota(u@d.com;9;" + action + ")"));
        EXPECT_EQ(manager.ErrNo, Untouched);
        EXPECT_EQ(openConnections(), 1);
    }
}

static const std::string Plain = "u@d.com:x:1:2:c:/home/u:/bin/sh", Joined = "u@d.com:x:1:2:c:/h:/s";
static const std::string Fields = ":userdb_mail=mbox:/h userdb_quota_rule=*:storage=";
static const std::string Edited = "u@d.com:x:1:2:c:/home/u:/bin/false:userdb_mail=mbox:/home/u userdb_quota_rule=*:storage=50B";

TEST_F(Quotas, AgentsFieldsAreAddedChangedAndCut)
{
    const std::map<std::string, std::string> calls = {{"add", "addDovecotQuota(u@d.com;/h;50)"}, {"edit", "editDovecotQuota(u@d.com;50)"}, {"del", "deleteDovecotQuota(u@d.com)"}};
    const struct {
        std::string task, before, line, after; // line: what the mailbox's line becomes, "" for none
    } cases[] = {
        {"add", Plain + "\n", Plain + Fields + "50B", "\n\n"},
        {"add", Plain + Fields + "1B\n", Plain + Fields + "1B" + Fields + "50B", "\n\n"},
        {"add", Plain, Plain + Fields + "50B", "\n"},
        {"add", "U@D.COM:x\n" + Plain + "\n\n\nb\n\n", "U@D.COM:x" + Fields + "50B", "\n" + Plain + "\n\n\nb\n\n\n"},
        {"add", "zu@d.com:x\nu@d.com.au:x\nu@d.com\n\n", "", ""},
        {"add", "", "", ""},
        {"edit", Plain + "\n", Edited, "\n\n"},
        {"edit", Plain + Fields + "1B\na\n", Plain + Fields + "50B", "\na\n\n"},
        {"edit", "u@d.com:x:1:2::/home/u:/bin/sh\n", "u@d.com:x:1:2::/home/u:/bin/sh", "\n\n"},
        {"edit", Plain + ":y\n", Plain + ":y", "\n\n"},
        {"edit", Plain + Fields + "1B:y\n", Plain + Fields + "1B:y", "\n\n"},
        {"edit", "u@d.com::x:1:2:c:/home/u:/bin/sh:\n", Edited, "\n\n"},
        {"edit", "\na:b\n", "", ""},
        {"del", Plain + Fields + "1B\n", Plain, "\n\n"},
        {"del", Plain + "\n", Plain, "\n\n"},
        {"del", "u@d.com:x::1:2:c:/h:/s:more:and\n", Joined, "\n\n"},
        {"del", "u@d.com:x:1:2::/h:/s\n", "u@d.com:x:1:2::/h:/s", "\n\n"},
        {"del", "a:b", "", ""},
    };
    for (const auto& c : cases) {
        const bool found = !c.line.empty();
        const std::string copy = "." + c.task + "bak", work = "vpasswd." + c.task + "tmp";
        World changes = {{"vpasswd" + copy, c.before}, {work, "gone"}}, changesBehindOthers = changes;
        if (found) {
            changes["vpasswd"] = c.line + c.after;
            changesBehindOthers["vpasswd"] = "a\n" + c.line + c.after;
        }
        changesBehindOthers["vpasswd" + copy] = "\n\na\n\n" + c.before; // empty lines in front go
        const std::string steps = copied("vpasswd", copy) + (found && c.task == "add" ? "quota entry =" + c.line + "\n" : "");
        check({{calls.at(c.task), {{"vpasswd", c.before}, {work, "left over: emptied first\n"}}, found ? "0" : "2", changes, steps},
               {calls.at(c.task), {{"vpasswd", "\n\na\n\n" + c.before}}, found ? "0" : "2", changesBehindOthers, steps, Untouched,
                {{"vpasswd", found ? "root 600 root's" : "12 600 34"}}}});
    }
    for (const auto& [task, call] : calls)
        check({{call, {}, "1", {{"vpasswd." + task + "tmp", ""}}, copied("vpasswd", "." + task + "bak")}});
}

TEST_F(Quotas, AgentsFieldsAreKeptInStep)
{
    const std::string with = Plain + Fields + "1B\n", line = "u@d.com\t1\n", pub = published(Map);
    const World on = {{"/etc/Quorvel.conf", "DovecotLDA = \"yes\"\n"}, {"vpasswd", with}, {Map, line}};
    World off = on, noMap = on;
    off["/etc/Quorvel.conf"] = "DovecotLDA=\"yes\"\n"; // only one of the two readers takes it
    noMap.erase(Map);
    const std::string drop = "VQuota(u@d.com;5;DeleteQuota)", update = "VQuota(u@d.com;5;UpdateQuota)", add = "VQuota(u@d.com;5;AddQuota)";
    const std::string cut = copied("vpasswd", ".delbak"), edited = copied("vpasswd", ".editbak");
    check({
        {drop, on, "0", {{"vpasswd", Plain + "\n\n"}, {"vpasswd.delbak", with}, {Map, ""}, {Copy, line}}, called(drop) + cut + pub, 0},
        {update, on, "325", {{"vpasswd", Plain + Fields + "5B\n\n"}, {"vpasswd.editbak", with}, {Map, "u@d.com\t5\n"}, {Copy, line}}, called(update) + edited + pub, 325},
        {drop, off, "0", {{Map, ""}, {Copy, line}}, called(drop) + pub, 0},
        {update, off, "325", {{Map, "u@d.com\t5\n"}, {Copy, line}}, called(update) + pub, 325},
        {drop, noMap, "1", {{"vpasswd", Plain + "\n\n"}, {"vpasswd.delbak", with}}, called(drop) + cut},
        {update, noMap, "1", {{"vpasswd", Plain + Fields + "5B\n\n"}, {"vpasswd.editbak", with}}, called(update) + edited},
        {add, noMap, "0", {{Map, "u@d.com\t5\n"}}, called(add) + pub},
    });
}

TEST_F(Quotas, QueriesReadTheMap)
{
    const Variant map = {Map, "", "", "", "", false, false, false};
    const std::string one = "RetrieveQuota(u@d.com)", all = "RetrieveDomainQuota(d.com)", none = "Unlimited Qouta set\n";
    const std::string mixed = "u@d.com\t1024\n\nu@D.com\t9\nno mark\nu@d.com5\nx@ \td.com \t \t9\nx@e.com 1\nv@d.com 2047 x";
    check(map, {{one, nullptr, "-1", nullptr, Kept},
                {one, "a\n\nx u@d.com\t1\nzu@d.com.au\t250\nu@d.com\t5\n", "\t250", "a\n\nx u@d.com\t1\nzu@d.com.au\t250\nu@d.com\t5\n", Kept},
                {one, "u@d.com\t-1\tx", "\t-1\tx", "u@d.com\t-1\tx", Kept},
                {one, "U@d.com\t1\n", "-1", "U@d.com\t1\n", Kept},
                {one, "u@d.com 5\n", "", "u@d.com 5\n", Kept},
                {"RetrieveQuota()", "\n", "", "\n", Kept},
                {all, nullptr, "0", nullptr, Kept, "qouta file not found\n"},
                {all, mixed.c_str(), "1 2", mixed.c_str(), Kept},
                {all, "u@d.com\t2048\nu@d.com\t-1\nu@d.com\t9999\n", "1 0", "u@d.com\t2048\nu@d.com\t-1\nu@d.com\t9999\n", Kept, none},
                {all, "u@d.com\t-2047\n", "1 -1", "u@d.com\t-2047\n", Kept},
                {all, "u@d.com\t 9223372036854775806x", "1 9007199254740991", "u@d.com\t 9223372036854775806x", Kept},
                {all, "u@d.com\tmany\n", "1 0", "u@d.com\tmany\n", Kept},
                {all, "u@dd.com\t1\nu@D.com\t1\n", "2 -1", "u@dd.com\t1\nu@D.com\t1\n", Kept},
                {"IsDomainHasUnlimitedQuota(d.com)", "u@d.com\t1\n", "true", "u@d.com\t1\n", Kept}});
}

TEST_F(Quotas, QueriesReadTheColumn)
{
    const std::string rows = "u@d.com|h|1024\nv@D.com|h|2047\nw@e.com|h|5\n", open = "w@e.com|h|0\nu@d.com|h|9\n";
    const std::string one = "query=select quota from virtual_users where email = 'u@d.com'\n";
    const std::string sum = "query=select SUM(quota) from virtual_users where email like '%@d.com'\n";
    const std::string unlimited = "query=select email from  virtual_users where quota = '0'\n";
    check({{"RetrieveQuota(u@d.com)", rows, "1024", rows, one},
           {"RetrieveQuota(u@d.com)", "u@d.com|h|0\n", "-1", "u@d.com|h|0\n", one},
           {"RetrieveQuota(u@d.com)", "", "-1", "", one},
           {"RetrieveDomainQuota(d.com)", rows, "1 2", rows, unlimited + "found=0\n" + sum},
           {"RetrieveDomainQuota(d.com)", open, "2 -1", open, unlimited + "found=1\n"},
           {"RetrieveDomainQuota(d.com)", "", "1", "", unlimited + "found=0\n" + sum},
           {"IsDomainHasUnlimitedQuota(d.com)", open, "true", open, unlimited + "found=1\n"},
           {"IsDomainHasUnlimitedQuota(d.com)", rows, "false", rows, unlimited + "found=0\n"}});
    EXPECT_EQ(run(SqlNoServer, "RetrieveDomainQuota(d.com)"), "2 -1"); // taken for unlimited
    sql("rename table virtual_users to u");
    EXPECT_EQ(run(Sql, "RetrieveDomainQuota(d.com)"), "0");
    EXPECT_EQ(happened, unlimited + "Unable to execute query\nresultset is null\n" + sum + "Unable to execute query\nNo quota resultset found\n");
    sql("rename table u to virtual_users");
}
