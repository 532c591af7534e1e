// What the library's tests share: an empty mail server world for each test, tables of cases, and a
// record of what an operation did. What a case says:
//     {"VQuota(u@d;50;AddQuota)",                 calls Postfix_VQuota("u@d", "50", "AddQuota")
//      {{"vquota.txt", "a\t1\n"}},                in a world with this map
//      "0",                                       answers this, and then what it put in an argument
//      {{"vquota.txt", "a\t1\nu@d\t50\n"}, ...},  changes these files and no other
//      copied("vquota.txt") + published("vquota.txt"), does this after its own trace
//      0},                                        and leaves this in ErrNo
//
// What it does are lines: what it prints, "$ COMMAND" given to the shell, "> METHOD(name=value, ...)"
// traced. copied(), published() and traced() give those of a copy, of a map and of another call.
#ifndef QV_TESTS_FIXTURE_H
#define QV_TESTS_FIXTURE_H

#include "PostfixManager.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

constexpr int Untouched = 4711;                               // ErrNo before each call
constexpr char Hash[] = "$1$ROcJtYNV$dEYpOwwwigIL98jPWLENV0"; // of "secret", while the clock stands

// Files below /etc/vmail by names, others by paths ("/" ends a directory), and "tables": the rows
// of virtual_domains, virtual_users and virtual_aliases, a line each, "|" between the columns.
using World = std::map<std::string, std::string>;

std::string pathOf(const std::string& name);
World world();                // maps, domain list, copies and work files; tables that have rows
void put(const World& world); // files of owner 12:34 and mode 0600, to see who changes them
std::string get(const std::string& name);
std::string rights(const std::string& name);   // user, mode, and whose primary group it belongs to
std::string sql(const std::string& statement); // as administrator
std::size_t openConnections();                 // of the library; ends them

void removeAccount(const std::string& name); // user and group, until the next emptyWorld
void setClock(long long seconds, long microseconds);
void emptyWorld(); // and the clock stands at 1700000000.123456

struct InWorld : testing::Test {
    void SetUp() override { emptyWorld(); }
};

// With the real postmap. It works as a map's owner, and would wait while main.cf is new.
struct WithPostmap : testing::Test {
    WithPostmap();
    ~WithPostmap() override;
    static void putAsRoot(const World& files); // as operations leave them
    static void putEmptyMaps();                // all of them, into an empty world
};

// How a manager reaches its accounts, and each way in which it cannot.
enum Backend { Files, Sql, SqlReadOnly, SqlWrongPassword, SqlWrongDatabase, SqlNoServer };

struct TestManager : PostfixManager {
    explicit TestManager(Backend backend);
};

// A mailbox's account as a host fills it, with the password "secret" and a home of its own.
struct Account {
    explicit Account(const std::string& user, const std::string& domain = "d.com");
    SvpopUser* operator&() { return &record; }
    std::string address, home;
    char password[600] = "secret", locked[2] = "x", comment[2] = "c", shell[11] = "/bin/false";
    struct passwd passwd;
    struct spwd shadow = {};
    SvpopUser record{&passwd, &shadow, ""};
};

std::string run(PostfixManager& manager, const std::string& call); // gives the answer
std::string run(Backend backend, const std::string& call);
extern std::string happened;                            // what the last call did
std::string watched(const std::function<void()>& work); // what else does
std::string traced(const std::string& call);
std::string copied(const std::string& file, const std::string& suffix = ".qvbackup");
std::string published(const std::string& map);

struct Case {
    std::string call;
    World before;
    std::string result;
    World changes;     // all of them, copies and work files too; "gone" for what is removed
    std::string steps; // lines after the call's own trace
    int errNo = Untouched;
    World rights = {};
};
void check(const std::vector<Case>& cases, Backend backend = Files);

// How a writer treats its map, and its cases, which run without and with a left-over work file.
struct Variant {
    std::string map, suffix, workFile, newRights, commands;
    bool copiesAlways, opensDirectory, keepsErrNo;
};
enum Path { Kept, Appended, Made, Rewritten, PublishedOnly };
struct MapCase {
    std::string call;
    const char* before; // null: no map
    std::string result;
    const char* after; // null: as before
    Path path;
    std::string printed = {};
};
void check(const Variant& variant, const std::vector<MapCase>& cases);

struct TableCase {
    std::string call, before, result, after, steps;
};
void check(const std::vector<TableCase>& cases, Backend backend = Sql);

#endif
