// PostfixManager - administers the virtual mail hosting of a Postfix server
//
// This header brings all that a host needs: the class, the account record, the list type, the
// tracing interface, the result codes, the paths of the maps, Encrypt and trimRightSpaces.
//
// What holds for every operation:
//
// Backend    m_mailAccountBackend "mysql", in any letter case, keeps the mail accounts in the
// tables
//            virtual_domains, virtual_users and virtual_aliases; anything else keeps them in the
//            map files named in MapFiles.h. Where an operation says "tables" or "files", it means
//            the one or the other.
// Rights     Operations write system files, change owners and run "cp", "postmap" and "postfix"
//            through the shell: run them as root, with a PATH on which these are found.
// Names      Domains, user names, addresses and quotas reach shell commands, map lines and
//            statements as they are given. The caller checks them first.
// Matching   Most maps are searched for a text that occurs anywhere in a key, so that a call for
//            bob@example.com also means jim.bob@example.com. Each operation says so; hosts rely
//            on it.
// Failures   Beyond the failures named with an operation nothing is detected: not those of shell
//            commands, of writing, of changing owner or mode. Nothing done before a failure is
//            undone. Maps are copied aside first, mostly to FILE.qvbackup, for the administrator.
// Order      One operation at a time, in one process: work files have fixed names and only the two
//            account writers lock their file. The object is not thread-safe.
// Tracing    Unless it says otherwise, an operation first reports its name, the values of its
//            arguments and their names to the tracing object.
// Output     Progress goes to standard output, a line each: "query=" and the statement before each
//            statement, and what the operation names. With tables, a connection that fails prints
//            the message of MySQLClient first.
// ErrNo      Operations that call others keep each callee's result in ErrNo; some map editors keep
//            their own there. Nothing clears it.
#ifndef QV_POSTFIXMANAGER_H
#define QV_POSTFIXMANAGER_H

#include "CQVTrackManager.h"
#include "Encrypt.h"
#include "Export.h"
#include "MapFiles.h"
#include "PostfixResults.h"
#include "StructVPopUser.h"
#include "VectorString.h"
#include "trimRightSpaces.h"

#include <string>

class QV_EXPORT PostfixManager
{
public:
    CQVTrackManager* TrackManager; // the caller's, never deleted here
    int ErrNo;                     // result of the last sub-operation; not set by the constructor
    std::string m_dovecotLDA;      // always empty: /etc/Quorvel.conf decides when it matters
    std::string m_mailAccountBackend;
    std::string m_mailSqlUser;
    std::string m_mailSqlUserPassword;
    std::string m_mailSqlServerIP; // address or name; "localhost" means the server's local socket
    std::string m_mailSqlDatabase;
    std::string m_mailSqlServerPort; // decimal text; empty: the client library's default port

    // Keeps the settings as they are given, reports "PostfixManager" to TrackMgr, opens nothing.
    // TrackMgr must outlive the object. dovecotLDA has no effect. Mind the order of the arguments:
    // it is not that of the members.
    PostfixManager(CQVTrackManager* TrackMgr, std::string dovecotLDA,
                   std::string mailAccountBackend, std::string mailSqlServerIP,
                   std::string mailSqlServerPort, std::string mailSqlUser,
                   std::string mailSqlUserPassword, std::string mailSqlDatabase);
    ~PostfixManager();

    // ---- Domains ----------------------------------------------------------------------------

    // Sets up a domain with its first mailbox: lists the domain, makes its spool tree, creates the
    // mailbox, runs "postmap /etc/vmail/vmaps.txt" and "postfix reload".
    //
    // UserName  local part of the first mailbox.     Passwd  its password in clear text; the
    // tracing Quota     bytes as decimal text; "-1" is no            object gets it too.
    //           limit.
    //
    // 303  the domain and its mailbox exist; a domain that was listed before is no error
    // 304  a step failed (ErrNo holds its result); earlier steps stay done
    //
    // Files and tables: those of Postfix_VHostFile, Postfix_CreateDomDir, Postfix_CreateMailbox.
    int Postfix_CreateMailDomain(std::string DomainName, std::string UserName, std::string Passwd,
                                 std::string Quota);

    // Makes the spool tree of a domain below /var/spool/vmail: DOMAIN, mail, mail/inbox, mail/home,
    // mail/home/oldaccounts, owner "qvadmin", primary group of "mail". A directory that is there
    // gets its owner and mode again. Traces the domain as argument name and value alike.
    //
    // 0  the tree stands
    // 1  the account "mail" or "qvadmin" is unknown (nothing is made), or a directory could not be
    //    made (those made before it stay)
    int Postfix_CreateDomDir(std::string DomainName);

    // Adds a domain to the list of hosted domains ("AddDomain") or removes it ("RmvDomain"). Does
    // not reload the server.
    //
    // With files, a domain counts as listed when some line contains it: "b.com" is not added beside
    // "ab.com", and removing "b.com" removes "ab.com" and "b.com.au" too, and empty lines.
    //
    // 0  done, nothing to do, or another Task
    // 1  "RmvDomain": the list cannot be opened; with tables: no connection, or a failed statement
    //
    // Files: /etc/VirtualHosts, its copy .qvbackup (made at every call, with tables too) and the
    // work file /etc/VirtualHosts-temp.txt. Table: virtual_domains.
    int Postfix_VHostFile(std::string DomainName, std::string Task);

    // ---- Mailboxes --------------------------------------------------------------------------

    // Creates a mailbox in an existing domain.
    //
    // vpopUserData  see StructVPopUser.h; the password in it is hashed, and its buffer overwritten.
    // UserName      local part.
    // Quota         bytes as decimal text; "-1" is no limit.
    //
    // With files: the vpasswd line, the delivery agent's quota fields when DovecotLDA is "yes", the
    // vshadow line, the quota line (both quotas unless "-1"), the mailbox map line. ErrNo holds the
    // last step's result. With tables: a row of virtual_users, where no limit is 0, and the row of
    // virtual_aliases that keeps a catch-all from taking the mailbox's mail; ErrNo is left alone.
    // Then, for both, the home directory /var/spool/vmail/DOMAIN/mail/home/ADDRESS.
    //
    // 305  created; a home directory that is there is taken over
    // 306  a step failed, or there is no connection; a quota line that matches already counts as
    //      such a failure
    // 1    the home directory cannot be made, or an account that is to own it is unknown
    int Postfix_CreateMailbox(SvpopUser* vpopUserData, std::string DomainName, std::string UserName,
                              std::string Quota);

    // Appends the record's Password as a line to /etc/vmail/vpasswd, under a file lock, after
    // copying it to .qvbackup. Does not look for a line of that name. Owner "root", primary group
    // of "mail", mode 0644. Traces no arguments.
    //
    // 0    written
    // 306  the file cannot be opened, locked or written, or an account that is to own it is unknown
    int Postfix_PasswdFile(SvpopUser* vpopUserData);

    // The same for the record's Shadow and /etc/vmail/vshadow. Sets the day of the change and the
    // ages, and replaces the clear password by its hash: sp_pwdp then points into crypt's buffer.
    //
    // 0 and 306 as above; 306 also when the password cannot be hashed (crypt refuses it)
    int Postfix_ShadowFile(SvpopUser* vpopUserData);

    // Adds ("AddUser") or removes ("RmvUser") lines of the mailbox map. Files only.
    //
    // "AddUser" adds nothing when some line contains UserName@DomainName. "RmvUser" drops every
    // line that contains UserName, the bare text, and every empty line. Any other Task changes
    // nothing but makes the copy, the table and the reload.
    //
    // 0  done, or nothing to do
    // 1  "RmvUser": the map cannot be opened
    //
    // Files: /etc/vmail/vmaps.txt, its copy .qvbackup, the work file vmaps-temp.txt. "postmap" and
    // "postfix reload" follow a change.
    int Postfix_VMaps(std::string UserName, std::string DomainName, std::string Task);

    // ---- Quotas -----------------------------------------------------------------------------

    // Adds ("AddQuota"), sets ("UpdateQuota") or removes ("DeleteQuota") a mailbox's quota.
    //
    // Mailbox  address.   Quota  bytes as decimal text, "-1" for no limit; ignored on removal.
    //
    // With files, a line matches when Mailbox occurs anywhere before its first blank, the quota
    // included. "UpdateQuota" replaces every matching line, or adds one through "AddQuota" when
    // there is none. While DovecotLDA is "yes", "UpdateQuota" and "DeleteQuota" also keep the
    // delivery agent's fields in step (its "-1" is refused by Dovecot: use "DeleteQuota"). With
    // tables, removal sets the column to 0, which is no limit, and an address that has no row is
    // no failure.
    //
    // 0    "AddQuota", "DeleteQuota": done
    // 325  "UpdateQuota": done
    // 1    "AddQuota": a line matches already; "DeleteQuota", "UpdateQuota": the map cannot be
    //      opened; with tables: no connection, a failed statement, "AddQuota" or another Action
    // ErrNo as it stands, with files, for another Action; the table is rebuilt all the same
    //
    // Files: /etc/vmail/vquota.txt, its copy .qvbackup, the work file vquota-temp.txt, and those of
    // DovecotManager; "postmap" and "postfix reload" follow a change. Table: virtual_users.
    int Postfix_VQuota(std::string Mailbox, std::string Quota, std::string Action);
};

#endif
