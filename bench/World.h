// The world that is measured: mailboxes in domains of a thousand, in files or in the database. A
// pristine copy of each file and table is kept, from which it is restored between two measurements.
#ifndef BENCH_WORLD_H
#define BENCH_WORLD_H

#include "PostfixManager.h"
#include "system/DomainTree.h"

#include <mysql/mysql.h>

#include <memory>
#include <string>
#include <vector>

// The entries that are asked for and changed stand in the last domain, so that whoever looks for
// them in a file reads all of it.
struct World {
    // kind  files; mysql; mysql-aliases, with a thousand aliases more in the domain; or
    //       mysql-unlimited, with nine of ten mailboxes without a limit
    World(const std::string& kind, int accounts);

    bool isMostlyUnlimited() const { return kind == "mysql-unlimited"; }

    std::string kind;
    bool usesDatabase;
    int accounts;
    std::string domain;
    std::string user, address; // its last mailbox, which has a forward
    std::string plainAddress;  // the one before that, which has none
    std::string alias;         // has one target and no mailbox
    std::string list;
    std::string newUser, newAddress, newAlias;
    std::string newDomain;

    std::string tree() const { return VSPOOLDIR "/" + domain; }
    std::string homeOf(const std::string& mailbox) const { return ::homeOf(domain, mailbox); }
    std::string inboxOf(const std::string& mailbox) const
    {
        return VSPOOLDIR "/" + ::inboxOf(domain, mailbox);
    }

    void populate() const;

    // Undoes what an operation has changed.
    void restore() const;

    PostfixManager manager(CQVTrackManager& tracing) const;
};

constexpr const char* Quota = "1048576";
constexpr const char* Password = "a-password-of-some-length";
constexpr const char* Elsewhere = "someone@elsewhere.test";
constexpr const char* MapFiles[] = {VDOMAINFILE, VPASSWDFILE, VSHADOWFILE,
                                    VMAPSFILE,   VALIASFILE,  VQUOTAFILE};

// The lines of a mailbox in each map.
std::string passwdLine(const std::string& domain, const std::string& address);
std::string shadowLine(const std::string& address);
std::string mapLine(const std::string& domain, const std::string& address);
std::string quotaLine(const std::string& address);

// A directory with the owner and mode of a mailbox's home.
void makeHome(const std::string& path);

// The password of the library's database account, which "qvmailctl init" has made.
std::string databasePassword();

// Ends the program with a message.
[[noreturn]] void fail(const std::string& attempt);

using Connection = std::unique_ptr<MYSQL, decltype(&mysql_close)>;

// Connects as the library does for each operation.
Connection connectAsHost();
void execute(MYSQL* connection, const std::string& statement);

#endif
