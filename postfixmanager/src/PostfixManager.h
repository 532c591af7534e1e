// PostfixManager - administers the virtual mail hosting of a Postfix server
//
// This header brings all that a host needs: the class, the account record, the list type, the
// tracing interface, the result codes, the paths of the maps, the version, Encrypt and
// trimRightSpaces. docs/panels.md has a worked example.
//
// What holds for every operation:
//
// Backend    m_mailAccountBackend "mysql", in any letter case, keeps the mail accounts in the
//            database, in its tables virtual_domains, virtual_users and virtual_aliases; anything
//            else keeps them in the map files named in MapFiles.h. Where an operation says "with a
//            database" or "with files", it means the one or the other.
// Rights     Operations write system files, change owners and run "cp", "postmap" and "postfix"
//            through the shell: run them as root, with a PATH on which these are found.
// Names      Domains, user names, addresses and quotas reach shell commands, map lines and
//            statements as they are given. The caller checks them first.
// Words      Action and Task take the words in quotes that an operation lists, letter for letter.
//            With any other word, an operation changes nothing, and its answer says little.
// Matching   Most maps are searched for a text that occurs anywhere in a key, so that a call for
//            bob@example.com also means jim.bob@example.com. Each operation says so; hosts rely
//            on it.
// Failures   Beyond the failures named with an operation nothing is detected: not those of shell
//            commands, of writing, of changing owner or mode. Nothing done before a failure is
//            undone. Maps are copied aside first, mostly to FILE.qvbackup, for the administrator.
//            PostfixTransaction.h has calls that are checked and undone.
// Odd files  A map, or the settings, may be a link to a regular file. A fifo, a directory, a socket
//            or a device there counts as a map that cannot be opened, and a line of more than 16
//            MiB as a read error: no call waits for ever or fills the memory.
// Spool      An account that may write below a domain's directory, as "qvadmin" may, cannot lead an
//            operation out of it by a link. Only the domain's directory itself may be a link. While
//            a mailbox's mail is removed, DOMAIN and DOMAIN/mail belong to root, and nobody else
//            may write there.
// Order      One operation at a time, in one process: work files have fixed names and only the two
//            account writers lock their file. The object is not thread-safe.
// Tracing    Unless it says otherwise, an operation first reports its name, the values of its
//            arguments and their names to the tracing object, which must not be null.
// Output     Progress goes to standard output, a line each: "query=" and the statement before each
//            statement, and what the operation names. With a database, a connection that fails
//            prints the message of MySQLClient first.
// Left open  With a database, Postfix_UpdateMailbox, Postfix_VQuota, Postfix_VAlias and
//            Postfix_VList keep their connection open when Action is none that they act on there:
//            each such call costs the server a connection until the process ends. It stays so for
//            the hosts that were built with it. While a transaction is open they share its
//            connection.
// ErrNo      Operations that call others keep each callee's result in ErrNo; some map editors keep
//            their own there. Nothing clears it.
// Spelling   "Retreive" and "Qouta", in names and in what is printed, are the interface's and stay:
//            hosts are built against them.
#ifndef QV_POSTFIXMANAGER_H
#define QV_POSTFIXMANAGER_H

#include "CQVTrackManager.h"
#include "Encrypt.h"
#include "Export.h"
#include "MapFiles.h"
#include "PostfixResults.h"
#include "PostfixVersion.h"
#include "StructVPopUser.h"
#include "VectorString.h"
#include "trimRightSpaces.h"

#include <string>

class QV_EXPORT PostfixManager
{
public:
    CQVTrackManager* TrackManager; // the caller's, never null, never deleted here
    int ErrNo;                     // result of the last sub-operation; not set by the constructor
    std::string m_dovecotLDA;      // always empty: DovecotLDA in /etc/Quorvel.conf counts instead
    std::string m_mailAccountBackend;
    std::string m_mailSqlUser;
    std::string m_mailSqlUserPassword;
    std::string m_mailSqlServerIP; // address or name; "localhost" means the server's local socket
    std::string m_mailSqlDatabase;
    std::string m_mailSqlServerPort; // decimal text; empty: the client library's default port

    // Keeps the settings as they are given, reports "PostfixManager" to TrackMgr, opens nothing.
    // TrackMgr must not be null, and must outlive the object. dovecotLDA has no effect. Mind the
    // order of the arguments: it is not that of the members.
    PostfixManager(CQVTrackManager* TrackMgr, std::string dovecotLDA,
                   std::string mailAccountBackend, std::string mailSqlServerIP,
                   std::string mailSqlServerPort, std::string mailSqlUser,
                   std::string mailSqlUserPassword, std::string mailSqlDatabase);
    ~PostfixManager();

    // ---- Domains ----------------------------------------------------------------------------

    // Sets up a domain with its first mailbox: lists the domain, makes its spool tree, creates the
    // mailbox, runs "postmap /etc/vmail/vmaps.txt" and "postfix reload".
    //
    // UserName  local part of the first mailbox.
    // Passwd    its password in clear text; the tracing object gets it too.
    // Quota     bytes as decimal text; "-1" is no limit.
    //
    // 303  the domain and its mailbox exist; a domain that was listed before is no error
    // 304  a step failed (ErrNo holds its result); earlier steps stay done
    //
    // Files and tables: those of Postfix_VHostFile, Postfix_CreateDomDir, Postfix_CreateMailbox.
    int Postfix_CreateMailDomain(std::string DomainName, std::string UserName, std::string Passwd,
                                 std::string Quota);

    // Makes the spool tree of a domain below /var/spool/vmail: DOMAIN, mail, mail/inbox, mail/home,
    // mail/home/oldaccounts, owner "qvadmin", primary group of "mail". A directory that is there
    // gets its owner and mode again; anything else that is there is left alone, and nothing is made
    // below it. Traces the domain as argument name and value alike.
    //
    // 0  the tree stands
    // 1  the account "mail" or "qvadmin" is unknown (nothing is made), or a directory could not be
    //    made (those made before it stay)
    int Postfix_CreateDomDir(std::string DomainName);

    // Adds a domain to the list of hosted domains or removes it. Does not reload the server.
    //
    // Task  "AddDomain" or "RmvDomain".
    //
    // With files, a domain counts as listed when some line contains it: "b.com" is not added beside
    // "ab.com", and removing "b.com" removes "ab.com" and "b.com.au" too, and empty lines.
    //
    // 0  done, nothing to do, or another Task
    // 1  "RmvDomain": the list cannot be opened; with a database: no connection, or a failed
    //    statement
    //
    // Files: /etc/VirtualHosts, its copy .qvbackup (made at every call, with a database too) and
    // the work file /etc/VirtualHosts-temp.txt. Table: virtual_domains.
    int Postfix_VHostFile(std::string DomainName, std::string Task);

    // Removes a domain and all that belongs to it: its entry in the list, its lines in vpasswd,
    // vshadow, vmaps.txt and vquota.txt (with a database: its rows of virtual_users), its aliases,
    // its spool tree. Traces as "Postfix_CreateMailDomain". Prints the "rm -r" command before it
    // runs it.
    //
    // With files, a listed domain and the key of an alias match when they contain the name: "b.com"
    // takes the listed domain and the aliases of "ab.com" with it. The lookup tables of vmaps.txt
    // and vquota.txt are not rebuilt here: until the next change of these maps, Postfix goes on
    // finding the domain's entries in them, its catch-all too.
    //
    // 317  deleted; a domain that is not listed, or a spool tree that is not there, is no error
    // 0    a step on the list, a file or the aliases failed (ErrNo holds its result)
    // 1    with a database: no connection, or the statement on virtual_users failed
    int Postfix_DeleteMailDomain(std::string DomainName);

    // Strips one file of the lines whose address lies in exactly this domain, and of empty lines.
    //
    // FPath  vpasswd, vshadow, vmaps.txt or vquota.txt, by its full path.
    //
    // 0  done
    // 1  the file cannot be opened
    //
    // Files: FPath (afterwards of "root" and the primary group of "qvadmin", mode 0644; no copy is
    // made) and the work file /etc/vmail/temp.txt.
    int Postfix_DeleteDomMailboxes(std::string DomainName, std::string FPath);

    // Strips the alias map of the lines whose key contains the domain, or virtual_aliases of the
    // rows whose source lies in it. An empty line shares the fate of the line before it.
    //
    // 0  done; with files also when there is no map
    // 1  with a database: no connection, or a failed statement
    //
    // Files: /etc/vmail/valias.txt (afterwards of "root" and the primary group of "qvadmin"; no
    // copy is made), the work file valias-temp.txt; "postmap" and "postfix reload" in any case.
    int Postfix_DeleteDomAliases(std::string DomainName);

    // ---- Mailboxes --------------------------------------------------------------------------

    // Creates a mailbox in an existing domain.
    //
    // vpopUserData  see StructVPopUser.h; the password in it is hashed, and its buffer overwritten.
    // UserName      local part.
    // Quota         bytes as decimal text; "-1" is no limit.
    //
    // With files: the vpasswd line, the delivery agent's quota fields when DovecotLDA is "yes", the
    // vshadow line, the quota line (both quotas unless "-1"), the mailbox map line. ErrNo holds the
    // last step's result. With a database: a row of virtual_users, where no limit is 0, and the row
    // of virtual_aliases that keeps a catch-all from taking the mailbox's mail; ErrNo is left
    // alone. Then, for both, the home directory /var/spool/vmail/DOMAIN/mail/home/ADDRESS.
    //
    // 305  created; a home directory that is there is taken over, and anything else left alone
    // 306  a step failed, or there is no connection; a quota line that matches already counts as
    //      such a failure
    // 1    the home directory cannot be made, "mail" or "home" being a link for one, or an account
    //      that is to own it is unknown
    int Postfix_CreateMailbox(SvpopUser* vpopUserData, std::string DomainName, std::string UserName,
                              std::string Quota);

    // Deletes a mailbox, its forward and quota, its home directory and inbox.
    //
    // UserName  local part.
    //
    // With files, every line that contains the address goes, in vpasswd and vshadow, in the mailbox
    // map, and by its key in the alias and quota maps: deleting bob@example.com also deletes
    // jim.bob@example.com there. With a database, the rows of exactly this address go.
    //
    // 307  deleted; a mailbox that was not there is no error
    // 308  a step failed (with files ErrNo holds its result), or there is no connection
    //
    // Files: those of Postfix_DeleteMailboxUser, Postfix_VMaps, Postfix_VAlias and, when there is a
    // quota map, Postfix_VQuota. Tables: virtual_users, virtual_aliases.
    int Postfix_DeleteMailbox(std::string UserName, std::string DomainName);

    // Drops from one file every line that contains UserName. Other lines stay, empty ones too, and
    // one more empty line stands at the end. A file that is missing is made, empty; one that cannot
    // be read stays as it is.
    //
    // FPath  the file's full path, not null.
    //
    // 0   done; the file belongs to the calling user and the group "qvadmin", its mode as the umask
    //     leaves it
    // -1  the group "qvadmin" is unknown; the lines are gone all the same
    //
    // Files: FPath and the work file /etc/vmail/temp.txt; no copy is made.
    int Postfix_DeleteMailboxUser(std::string UserName, const char* FPath);

    // Changes a mailbox's password or its type.
    //
    // Mailbox  the address: the whole name, in any letter case, for a password; a text that the
    //          name contains for a type, so that bob@example.com means jim.bob@example.com too.
    // Value    the new password in clear text, at most 255 bytes (the tracing object gets it too),
    //          or "admin" for an administrator, anything else for an ordinary user.
    // Action   "UpdatePasswd" or "UpdateUserType".
    //
    // With files, the password is the second field of the vshadow line; the type is the gid in the
    // vpasswd line (of the group "mail" for an administrator, else "qvadmin") and the flag in the
    // vshadow line (1 or 0). Empty lines count with the line before them: mostly one more stands at
    // the file's end. With a database, a type changes nothing, and its call keeps its connection
    // open (see "Left open"): do without it there.
    //
    // 321  done; a mailbox that is not there is no error
    // 1    an account file cannot be opened (a changed vpasswd stays changed), the password is too
    //      long or cannot be hashed, the group is unknown; with a database: no connection, or a
    //      failed statement
    // ErrNo as it stands, with files, for another Action; with a database that is 321
    //
    // Prints its own name, the steps "cp" and "cp1" and the changed vshadow line, hash included;
    // with a database "mysql is used", "UpdatePasswd" and the statement.
    // Files: /etc/vmail/vshadow, vpasswd (afterwards of "root" and the primary group of "qvadmin",
    // mode 0644; no copy is made), the work files vshadow_temp.txt and vpasswd_temp.txt; then
    // "postfix reload". Table: virtual_users.
    int Postfix_UpdateMailbox(std::string Mailbox, std::string Value, std::string Action);

    // Appends the local parts of a domain's mailboxes to Users. With files the domain is compared
    // exactly, with a database as that compares.
    //
    // 0   done; a domain without mailboxes is no error
    // 63  /etc/vmail/vpasswd cannot be opened; no connection; the statement failed (printed as
    //     "No mailbox found")
    int Postfix_GetMailboxList(std::string DomainName, VectorString* Users);

    // The number of a domain's mailboxes, or 63 when vpasswd cannot be opened, there is no
    // connection or the statement failed ("No mailbox count resultset found"). A real count of 63
    // looks the same: ask for the list where that matters. Does not trace.
    int Postfix_GetMailboxCount(std::string DomainName);

    // Whether the address is a mailbox: the whole name of a vshadow line, in any letter case, or a
    // row of virtual_users. An unreadable vshadow answers false; a missing connection and a failed
    // statement ("No mailbox found") answer true. Does not trace.
    bool Postfix_IsMailboxExists(std::string UserName);

    // Appends the record's Password as a line to /etc/vmail/vpasswd, under a file lock, after
    // copying it to .qvbackup. Does not look for a line of that name. Owner "root", primary group
    // of "mail", mode 0644. Traces no arguments.
    //
    // 0    written
    // 306  the file cannot be opened or locked, the record makes no line (a field holds a colon,
    //      say), or an account that is to own the file is unknown. A full disk is not detected.
    int Postfix_PasswdFile(SvpopUser* vpopUserData);

    // The same for the record's Shadow and /etc/vmail/vshadow. Sets the day of the change and the
    // ages, and replaces the clear password by its hash: sp_pwdp then points into crypt's buffer.
    //
    // 0 and 306 as above; 306 also when the password cannot be hashed (crypt refuses it)
    int Postfix_ShadowFile(SvpopUser* vpopUserData);

    // Adds or removes lines of the mailbox map. Files only.
    //
    // Task  "AddUser" or "RmvUser".
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

    // Adds, sets or removes a mailbox's quota.
    //
    // Mailbox  address.
    // Quota    bytes as decimal text, "-1" for no limit; ignored on removal.
    // Action   "AddQuota" (with files alone), "UpdateQuota" or "DeleteQuota".
    //
    // With files, a line matches when Mailbox occurs anywhere before its first blank, the quota
    // included. "UpdateQuota" replaces every matching line, or adds one through "AddQuota" when
    // there is none. While DovecotLDA is "yes", "UpdateQuota" and "DeleteQuota" also keep the
    // delivery agent's fields in step (its "-1" is refused by Dovecot: use "DeleteQuota"). With
    // database, removal sets the column to 0, which is no limit, and an address that has no row is
    // no failure.
    //
    // 0    "AddQuota", "DeleteQuota": done
    // 325  "UpdateQuota": done
    // 1    "AddQuota": a line matches already; "DeleteQuota", "UpdateQuota": the map cannot be
    //      opened; with a database: no connection, a failed statement, "AddQuota" or another Action
    // ErrNo as it stands, with files, for another Action; the table is rebuilt all the same
    //
    // Files: /etc/vmail/vquota.txt, its copy .qvbackup, the work file vquota-temp.txt, and those of
    // DovecotManager; "postmap" and "postfix reload" follow a change. Table: virtual_users.
    int Postfix_VQuota(std::string Mailbox, std::string Quota, std::string Action);

    // The quota of one mailbox as text, "-1" for no limit and for whatever could not be found or
    // read.
    //
    // With files, the first line counts whose text up to a blank contains UserName, the address;
    // the answer begins with the line's tab ("\t500"): trim it. With a database, it is the bare
    // value, and a stored 0 is answered as "-1"; a failed statement prints "No mailbox found".
    std::string Postfix_RetrieveQuota(std::string UserName);

    // The sum of a domain's quotas, in KiB (bytes divided by 1024, cut).
    //
    // 0  the quota map cannot be opened ("qouta file not found"); no connection; the statement
    //    failed ("No quota resultset found"). ll_refQouta is not touched.
    // 1  ll_refQouta holds the sum. With files it is 0 when a mailbox of the domain has no limit
    //    ("Unlimited Qouta set"); with a database it is not touched when the domain has no mailbox.
    // 2  with files, no mailbox of the domain has a quota; with a database, some mailbox of any
    //    domain has no limit. ll_refQouta is -1.
    //
    // Does not trace.
    int Postfix_RetrieveDomainQuota(std::string szMailDomainName, long long& ll_refQouta);

    // With a database, whether any mailbox of any domain has no limit; the domain is not looked at.
    // True with files, and when there is no connection; false when the statement failed
    // ("resultset is null"). Prints "found=" and 1 or 0. Does not trace.
    bool Postfix_IsDomainHasUnlimitedQuota(std::string DomainName);

    // ---- Forwarders and mailing lists -------------------------------------------------------
    //
    // Both are entries of /etc/vmail/valias.txt ("address destination") or rows of virtual_aliases.
    // An address with an entry but without a mailbox is a list. With files, an entry stands for an
    // address when its key contains it: jimbob@example.com also stands for bob@example.com.

    // Adds, sets or removes a forward.
    //
    // Mailbox  the address whose mail is forwarded.
    // Alias    the destination; ignored on removal.
    // Action   "AddAlias", "UpdateAlias" or "DeleteAlias".
    //
    // With a database, a mailbox without a forward has the row (address, address): a forward takes
    // its place, and removal brings it back, also for an address that has no mailbox.
    //
    // 327  "AddAlias" done
    // 329  "DeleteAlias" done; also when there is no map
    // 321  "UpdateAlias" done; a forward that was not there is added
    // 0    with files, "AddAlias": an entry stands for the address already. With a database: the
    //      same, no connection, a failed statement (earlier ones stay done), another Action
    // 1    with files, "UpdateAlias": the map cannot be opened
    // ErrNo as it stands, with files, for another Action; the table is rebuilt all the same
    //
    // ErrNo, with files, holds the code of what was done.
    // Files: /etc/vmail/valias.txt, its copy .qvbackup (when there is a map), the work file
    // valias-temp.txt; "postmap" and "postfix reload" follow a change. Table: virtual_aliases.
    int Postfix_VAlias(std::string Mailbox, std::string Alias, std::string Action);

    // Adds, sets or removes a mailing list.
    //
    // Addresses  the members: one element, comma-separated. With files every element is written, a
    //            blank before each; with a database only the first is read, split at commas, and a
    //            member of one character ends it. May be null or empty for "DeleteList".
    // Action     "AddList", "UpdateList" or "DeleteList".
    //
    // 310  "AddList" done
    // 309  "AddList": the list is there already
    // 323  "UpdateList" done; with files a list that is not there stays away
    // 319  "DeleteList" done
    // 1    "UpdateList": with files the map cannot be opened; with a database the old rows could
    //      not be deleted
    // 0    with files, "DeleteList": the map cannot be opened. With a database: no connection, no
    //      member, a failed statement (after "UpdateList" the old rows are gone), another Action
    // ErrNo as it stands, with files, for another Action; the table is rebuilt all the same
    //
    // The members are not traced. Prints, with a database, "ptr=" and the rest while it splits.
    // ErrNo, with files, holds the code of what was done. Files and table: as for Postfix_VAlias,
    // but a copy is also tried when there is no map.
    int Postfix_VList(std::string ListName, VectorString* Addresses, std::string Action);

    // Appends the local parts of the addresses that forward to EmailAddress to Aliases. Reads the
    // alias map, with a database too, and passes over lines with three "@" or more, which are
    // lists. The address counts wherever it occurs in a destination.
    //
    // 0   done
    // 63  the map cannot be opened
    int Postfix_GetAliasList(std::string EmailAddress, VectorString* Aliases);

    // Where mail for UserName, an address, is forwarded to; empty when it is not, or nothing could
    // be read. With files, the value of the first entry that stands for the address, all of it;
    // with a database, the first row's destination. Prints, with a database, "Forward Address=" and
    // it, or "No forward address found" when the statement fails.
    std::string Postfix_RetrieveAlias(std::string UserName);

    // With a database, whether the address forwards elsewhere. True with files, and when there is
    // no connection; false when the statement failed ("resultset is null"). Prints "found=" and 1
    // or 0. Does not trace.
    bool Postfix_IsVAliasExists(std::string Address);

    // Appends the local parts of a domain's lists to Lists. With files: of all entries in which the
    // domain occurs anywhere, in a member too, and whose key is no mailbox.
    //
    // 0   done
    // 63  the map cannot be opened; no connection; the statement failed ("No list member found")
    int Postfix_GetLists(std::string DomainName, VectorString* Lists);

    // Appends a list's members to Members: with a database one a row; with files the
    // blank-separated words of every entry with exactly this key, commas and all.
    //
    // 0   done; a list that is not there has no members
    // 63  as above
    int Postfix_GetListSettings(std::string EmailAddress, VectorString* Members);

    // With a database, whether the address has any entry, a mailbox's own row included. Otherwise
    // as Postfix_IsVAliasExists.
    bool Postfix_IsVListExists(std::string Address);

    // ---- Catch-all --------------------------------------------------------------------------
    //
    // A mailbox of the domain that gets what is sent to unknown addresses: the line of the mailbox
    // map with exactly the key "@DOMAIN", or the row of virtual_aliases with that source.

    // Sets a domain's catch-all. CatchAllAddress is the mailbox's local part; whether there is such
    // a mailbox is not checked.
    //
    // 332  set
    // 331  the map cannot be opened ("File does not exist."); no connection; a failed statement
    //
    // Files: /etc/vmail/vmaps.txt (afterwards of "root" and the primary group of "qvadmin", mode
    // 0644), its copy .CABackup, the work file vmaps-temp.txt; "postmap" and "postfix reload"
    // follow. Table: virtual_aliases.
    int Postfix_UpdateCatchAllAddress(std::string Domain, std::string CatchAllAddress);

    // Removes a domain's catch-all. Prints the line that it removes. Does not trace.
    //
    // 333  removed, or there was none; also when the map cannot be opened ("File does not exist.")
    // 334  no connection, or a failed statement
    //
    // Files and table as above.
    int Postfix_RemoveCatchAllAddress(std::string szDomain);

    // Stores a domain's catch-all in szCatchAllAddress: the local part with files, the whole
    // address with a database. With files the map is copied to .CABackup and the line printed. Does
    // not trace.
    //
    // 1  found; with a database also when there is none, and szCatchAllAddress is not touched
    // 0  not found; the map cannot be opened ("File does not exist."); no connection; the statement
    //    failed ("unable to run get catch all query")
    int Postfix_RetreiveCatchAllAddress(std::string szDomain, std::string& szCatchAllAddress);

    // With a database, whether a domain has a catch-all. Otherwise as Postfix_IsVAliasExists.
    bool Postfix_IsCatchAllExists(std::string DomainName);
};

#endif
