// The quota map and column, the delivery agent's quota fields, quota queries.
#include "fixture.h"

using Quotas = InWorld;

static const std::string Map = "vquota.txt", Copy = "vquota.txt.qvbackup";

// clang-format off
TEST_F(Quotas, MapIsAddedToAndRewritten)
{
    const std::string add = "VQuota(u@d;50;AddQuota)", drop = "VQuota(u@d;9;DeleteQuota)";
    const std::string update = "VQuota(u@d;-1;UpdateQuota)", any = std::to_string(Untouched);
    const char crowd[] = "a\t1\n\nu@d\t2\nbu@d.au\t3\nx\tu@d\ny u@d\n\nz";
    Variant map = {Map, ".qvbackup", "vquota-temp.txt", "root 644 mail's", published(Map),
                   true, true, true};
    check(map, {
        {add, "a u@d\n\nU@d", "0", "a u@d\n\nU@du@d\t50\n", Appended},
        {add, "x\nbu@d.au\t1", "1", nullptr, Kept},
        {add, "x u@d\nx\tu@d\n", "1", nullptr, Kept},
        {drop, nullptr, "1", nullptr, Kept},
        {drop, crowd, "0", "a\t1\ny u@d\nz\n", Rewritten},
        {drop, "\na b", "0", "a b\n", Rewritten},
        {update, nullptr, "1", nullptr, Kept},
        {update, crowd, "325", "a\t1\nu@d\t-1\nu@d\t-1\nu@d\t-1\ny u@d\nz\n", Rewritten},
        {"VQuota(u@d;5;deleteQuota)", "u@d\t2\n\n", any, nullptr, PublishedOnly},
    });
    map.keepsErrNo = false;
    check(map, {{add, nullptr, "0", "u@d\t50\n", Made}});

    // Nothing to update: the line is added by a call of its own, which copies and publishes itself,
    // and finds what a left-over work file brought in.
    const std::string nested = copied(Map) + traced("VQuota(u@d;-1;AddQuota)") + copied(Map);
    check({{update, {{Map, "\na\n"}}, "325", {{Map, "a\nu@d\t-1\n"}, {Copy, "a\n"}},
            nested + published(Map) + published(Map), 325, {{Map, "root 644 mail's"}}},
           {update, {{Map, "a\n"}, {"vquota-temp.txt", "zu@d\t7\n"}}, "325",
            {{Map, "zu@d\t7\na\n"}, {Copy, "zu@d\t7\na\n"}, {"vquota-temp.txt", "gone"}},
            nested + published(Map), 325}});
}

TEST_F(Quotas, ColumnIsSet)
{
    const std::string rows = "U@D|h|7\nv@d|h|8\n", to0 = "U@D|h|0\nv@d|h|8\n";
    const std::string set = "query=update virtual_users set quota = ", of = " where email = 'u@d'";
    check({{"VQuota(u@d;9;DeleteQuota)", rows, "0", to0, set + "'0'" + of},
           {"VQuota(u@d;-10;UpdateQuota)", rows, "325", "U@D|h|-10\nv@d|h|8\n", set + "'-10'" + of},
           {"VQuota(u@d;-1;UpdateQuota)", rows, "325", to0, set + "'0'" + of},
           {"VQuota(u@d;x;UpdateQuota)", rows, "1", rows, set + "'x'" + of}});
}

static const std::string Plain = "u@d:x:1:2:c:/home/u:/bin/sh", Six = "u@d:x:1:2::/h:/s";
static const std::string Fields = ":userdb_mail=mbox:/h userdb_quota_rule=*:storage=";
static const std::string Edited = "u@d:x:1:2:c:/home/u:/bin/false:userdb_mail=mbox:/home/u "
                                  "userdb_quota_rule=*:storage=50B";

TEST_F(Quotas, AgentsFieldsAreAddedChangedAndCut)
{
    const World calls = {{".add", "addDovecotQuota(u@d;/h;50)"},
                         {".edit", "editDovecotQuota(u@d;50)"},
                         {".del", "deleteDovecotQuota(u@d)"}};
    const struct {
        std::string task, before, after, printed = {}; // no line after: none is found
    } cases[] = {
        {".add", "\n\na\n\nU@D:x\n" + Plain + "\n\n\nb\n\n", // empty lines in front go
         "a\nU@D:x" + Fields + "50B\n" + Plain + "\n\n\nb\n\n\n",
         "quota entry =U@D:x" + Fields + "50B"},
        {".add", "\nzu@d:x\nu@d.au:x\nu@d\n\n", ""},
        {".edit", "\n" + Plain + "\n", Edited + "\n\n"},
        {".edit", Plain + Fields + "1B\na\n", Plain + Fields + "50B\na\n\n"},
        {".edit", Six + "\n", Six + "\n\n"},
        {".edit", Plain + Fields + "1B:y\n", Plain + Fields + "1B:y\n\n"},
        {".edit", "u@d::x:1:2:c:/home/u:/bin/sh:\n", Edited + "\n\n"},
        {".edit", "b:c\n", ""},
        {".del", "\nb\n" + Plain + Fields + "1B\n", "b\n" + Plain + "\n\n"},
        {".del", Six, Six + "\n"},
        {".del", "", ""}};
    for (const auto& c : cases) {
        const std::string work = "vpasswd" + c.task + "tmp", copy = c.task + "bak";
        const bool found = !c.after.empty();
        check({{calls.at(c.task), {{"vpasswd", c.before}, {work, "left over"}}, found ? "0" : "2",
                {{"vpasswd", found ? c.after : c.before}, {"vpasswd" + copy, c.before},
                 {work, "gone"}}, copied("vpasswd", copy) + c.printed}});
    }
    for (const auto& [task, call] : calls)
        check({{call, {}, "1", {{"vpasswd" + task + "tmp", ""}}, copied("vpasswd", task + "bak")}});
}

TEST_F(Quotas, AgentsFieldsAreKeptInStep)
{
    const std::string with = Plain + Fields + "1B\n", line = "u@d\t1\n", set = "u@d\t5\n";
    const World on = {{"/etc/Quorvel.conf", "DovecotLDA = \"yes\"\n"}, {"vpasswd", with}};
    World onWithMap = on;
    onWithMap[Map] = line;
    World off = onWithMap;
    off["/etc/Quorvel.conf"] = "DovecotLDA=\"yes\"\n"; // only one of the two readers takes it
    const std::string drop = "VQuota(u@d;5;DeleteQuota)", update = "VQuota(u@d;5;UpdateQuota)";
    const std::string copy = copied(Map), publish = published(Map);
    check({{drop, on, "1", {{"vpasswd", Plain + "\n\n"}, {"vpasswd.delbak", with}},
            copy + copied("vpasswd", ".delbak")}, // no map, and yet the account's line is cut
           {update, onWithMap, "325", {{"vpasswd", Plain + Fields + "5B\n\n"},
            {"vpasswd.editbak", with}, {Map, set}, {Copy, line}},
            copy + copied("vpasswd", ".editbak") + publish, 325},
           {drop, off, "0", {{Map, ""}, {Copy, line}}, copy + publish, 0},
           {"VQuota(u@d;5;AddQuota)", on, "0", {{Map, set}}, copy + publish}});
}

TEST_F(Quotas, QueriesReadTheMap)
{
    const std::string one = "RetrieveQuota(u@d)", all = "RetrieveDomainQuota(d)";
    check(Variant{Map, "", "", "", "", false, false, false}, {
        {one, nullptr, "-1", nullptr, Kept},
        {one, "U@d\t1\n\nx u@d\t1\nzu@d.au\t250\tx \nu@d\t5\n", "\t250\tx ", nullptr, Kept},
        {one, "u@d 5\n", "", nullptr, Kept},
        {"RetrieveQuota()", "\n", "", nullptr, Kept},
        {all, nullptr, "0", nullptr, Kept, "qouta file not found"},
        {all, "u@d\t1024\n\nu@D\t9\nd\nu@d\n@\td\nv@d 2047\tx\n w@d\t-1025", "1 1", nullptr, Kept},
        {all, "u@d\t8\nu@d\t-1\nu@d\t9\n", "1 0", nullptr, Kept, "Unlimited Qouta set"},
        {all, "u@d\t 9223372036854775806x", "1 9007199254740991", nullptr, Kept},
        {all, "u@dd\t1\nu@D\t1\n", "2 -1", nullptr, Kept},
        {"IsDomainHasUnlimitedQuota(d)", "u@d\t1\n", "true", nullptr, Kept},
    });
}

TEST_F(Quotas, QueriesReadTheColumn)
{
    const std::string rows = "u@d|h|1024\nv@D|h|2047\nw@e.com|h|5\n", free = "w@e.com|h|0\n";
    const std::string one = "query=select quota from virtual_users where email = 'u@d'\n";
    const std::string sum = "query=select SUM(quota) from virtual_users where email like '%@d'\n";
    const std::string is = "query=select email from  virtual_users where quota = '0'\n";
    check({{"RetrieveQuota(u@d)", rows, "1024", rows, one},
           {"RetrieveQuota(u@d)", "u@d|h|0\n", "-1", "u@d|h|0\n", one},
           {"RetrieveDomainQuota(d)", rows, "1 2", rows, is + "found=0\n" + sum},
           {"RetrieveDomainQuota(d)", "", "1", "", is + "found=0\n" + sum},
           {"IsDomainHasUnlimitedQuota(d)", free, "true", free, is + "found=1"}});
}
