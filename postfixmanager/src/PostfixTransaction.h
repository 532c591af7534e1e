// PostfixTransaction - several operations as one change, made as a whole or not at all
//
// While a transaction is open, the operations of this process (of any PostfixManager and
// DovecotManager) work on copies that nobody else sees. The commit publishes all of it at once. A
// program that does not commit changes nothing, whether it fails, crashes or goes away.
//
//     PostfixTransaction transaction(manager);
//     if (transaction.open(30) != PostfixTransaction::Done) ...            // transaction.reason()
//     if (manager.Postfix_CreateMailDomain(...) != PostfixResult::DomainCreated) ...
//     if (transaction.commit() != PostfixTransaction::Done) ...            // transaction.reason()
//
// What is different while it is open:
//
// Names      A name is a whole name: bob@example.com never means jim.bob@example.com, and b.com
//            never ab.com.
// Outcomes   Results, output and tracing are those of the operation, but every step below it is
//            checked. The first that fails makes the commit refuse, whatever the operation
//            answered: a full disk, a read error, a map that is missing or a link, a statement
//            that the database refuses, a name that would make a malformed line. An operation that
//            answers with a failure may have staged a part of its work: drop the transaction then.
// Maps       Copies are staged in /etc/vmail/transaction, the domain list's in
//            /etc/VirtualHosts-transaction, for root alone. Empty lines are passed over. Only the
//            commit makes a copy, FILE.qvbackup; no work file is written.
// Commands   "cp", "postmap", "postfix reload" and "rm" are not run. At the commit "postmap" builds
//            the table of each changed map beside its staged copy; maps and tables take their
//            places by rename, the former maps stay as FILE.qvbackup, "postfix reload" runs once,
//            and deleted mail is removed last.
// Spool      New directories are made at the commit.
// Database   All operations share one connection and one transaction of the database, made with
//            the settings of the manager. It waits 10 seconds for a connection and 60 for an
//            answer, or as limitWaiting says.
//
// Transactions exclude each other, on one machine, by a lock that ends with its process. A program
// that changes maps without a transaction is noticed: the commit refuses when a map is no longer
// the one that was copied. When a process died in the middle of a commit, the next open() of any
// process completes that commit first. A process has one transaction at a time, and no threads use
// it.
#ifndef QV_POSTFIXTRANSACTION_H
#define QV_POSTFIXTRANSACTION_H

#include "PostfixManager.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class QV_EXPORT PostfixTransaction
{
public:
    enum Outcome {
        Done = 0,
        Busy,       // another transaction is open, in another process; nothing is changed
        Refused,    // nothing is changed; reason() says why
        Unfinished, // the change could not be carried out to its end, or it is not known whether
                    // the database took it; reason() says what is left to do, and by whom
    };

    struct Change {
        enum Kind { Added, Removed, Changed };
        std::string place; // the path of a map, the name of a table, or "/var/spool/vmail"
        Kind kind;
        std::string name; // of the entry: an address, a domain, "@" and a domain; the path of a
                          // directory or file of the spool
    };

    // Opens nothing. The manager must outlive the object: its settings say where the accounts are.
    explicit PostfixTransaction(PostfixManager& manager);

    // Drops what is not committed.
    ~PostfixTransaction();

    PostfixTransaction(const PostfixTransaction&) = delete;
    PostfixTransaction& operator=(const PostfixTransaction&) = delete;

    // Begins. First completes, or takes back, what a transaction that died has left.
    //
    // patience  seconds to wait for another transaction to end; negative: without end.
    //
    // Done     it is open
    // Busy     another one was still open after that time
    // Refused  this process has an open one; /etc/vmail is missing or cannot be written to; the
    //          database cannot be reached; an earlier change cannot be completed
    Outcome open(int patience);

    bool isOpen() const;

    // Why the commit would refuse by now; empty while it would not.
    std::string failure() const;

    // What the commit would change: maps first, then tables, then the spool. An entry that was
    // removed and added again as it was is unchanged. A mailbox's row for itself in virtual_aliases
    // is left out, since map files have none. Empty when a staged copy cannot be compared:
    // failure() then says why.
    std::vector<Change> changes();

    // Stores password fields as they are, where Postfix_UpdateMailbox hashes a clear password: to
    // bring accounts from another server, or to stop logins ("!" before the hash, say). While it is
    // open; also for mailboxes that it has created. Thousands take one pass over the map.
    //
    // hashes  pairs of an address, the whole name in any letter case, and its new field: a hash as
    //         Dovecot reads it, with or without its {SCHEME}. Of two for one address the later one
    //         counts.
    //
    // 321  staged
    // 1    failure() says why, and the commit would refuse: an address has no mailbox; a field is
    //      empty, or holds a colon, a quote, a backslash, a blank or a control character (nothing
    //      of the call is staged then). Also when something failed before; and when nothing is open
    //
    // Prints and traces nothing. File: /etc/vmail/vshadow; the server is not reloaded, as Dovecot
    // notices by itself. Table: virtual_users.
    int storePasswordHashes(const std::vector<std::pair<std::string, std::string>>& hashes);

    // Creates a mailbox as Postfix_CreateMailbox does, but with a password that is hashed already.
    // To bring thousands from another server takes a few times as long when each password is
    // hashed.
    //
    // vpopUserData  as for Postfix_CreateMailbox, but sp_pwdp is the field as storePasswordHashes
    //               takes it. It is left as it is.
    //
    // 305 and 1  as Postfix_CreateMailbox
    // 306        the same; and when the field cannot be stored, which makes the commit refuse, and
    //            when nothing is open: reason() says why
    int createMailboxWithHash(SvpopUser* vpopUserData, const std::string& domain,
                              const std::string& user, const std::string& quota);

    // Mends what no operation can: a line that is there twice, or one that no reader understands.
    // Rewrites the map by the rule, which gets each line that is not empty, in order, and returns
    // the line to write, or nothing to drop it. The map is published even if no line changes: its
    // last line is then ended. When the second line of a name is dropped, changes() reports the
    // entry as removed.
    //
    // 321  staged
    // 1    failure() says why, and the commit would refuse: it is none of the system's maps, or
    //      cannot be read or written. Also when something failed before; and when nothing is open
    //
    // Prints and traces nothing.
    using LineRepair = std::function<std::optional<std::string>(std::string_view line)>;
    int repairMap(const std::string& map, const LineRepair& rule);

    // Publishes all of it. The transaction is closed afterwards, whatever the outcome.
    //
    // Done        the change is made and on disk. reason() is empty, or says that "postfix reload"
    //             failed, as it does while the mail server is stopped
    // Refused     the world is as it was before
    // Unfinished  see above
    Outcome commit();

    // Gives it up: the world is as it was before.
    void drop();

    // Why the last call was not Done.
    const std::string& reason() const;

    // Whether the same calls may succeed in a new transaction. True when the last call was refused,
    // or the commit would refuse, because the database ended the transaction for a deadlock with
    // another, or because the connection was lost before the commit. Nothing was changed: drop(),
    // open() and make the same calls again, a few times.
    bool mayPass() const;

    // How long transactions that are opened from now on wait for a connection to the database and
    // for each of its answers, in seconds. The database may wait before an answer for a row that
    // somebody else has locked: 50 seconds by default, and never longer than this limit.
    void limitWaiting(unsigned connectSeconds, unsigned answerSeconds);

private:
    struct State;
    PostfixManager& m_manager;
    std::string m_reason;
    bool m_mayPass = false;
    unsigned m_connectSeconds = 10;
    unsigned m_answerSeconds = 60;
    std::unique_ptr<State> m_state; // null: not open
};

#endif
