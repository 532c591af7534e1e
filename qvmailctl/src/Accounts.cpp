#include "Accounts.h"

#include "DovecotManager.h"
#include "MapFiles.h"
#include "Passwords.h"
#include "QuotaText.h"
#include "Results.h"
#include "system/DomainTree.h"
#include "system/SystemAccounts.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace
{

// Looked up once: an import makes thousands of mailboxes. change() has checked that they exist.
struct Owners {
    uid_t user = getpwnam(MailOwner)->pw_uid;
    gid_t groupOfUsers = getpwnam(MailOwner)->pw_gid;
    gid_t groupOfAdmins = getgrnam(MailReaders)->gr_gid;
};

// A mailbox's account as the library takes it, with the strings that the record points to.
struct AccountRecord {
    std::string name;
    std::string home;
    std::string mark = "x";
    std::string shell = "/bin/false";
    struct passwd account {
    };
    struct spwd shadow {
    };
    SvpopUser record = {};

    AccountRecord(const Address& address, char* password, Mailbox::Type type)
        : name(address.text), home(homeOf(address.domain, address.text))
    {
        static const Owners owners;
        const bool isAdmin = type == Mailbox::Admin;
        account.pw_name = account.pw_gecos = name.data();
        account.pw_passwd = mark.data();
        account.pw_uid = owners.user;
        account.pw_gid = isAdmin ? owners.groupOfAdmins : owners.groupOfUsers;
        account.pw_dir = home.data();
        account.pw_shell = shell.data();
        shadow.sp_namp = name.data();
        shadow.sp_pwdp = password;
        shadow.sp_expire = -1;
        shadow.sp_flag = isAdmin ? 1 : 0;
        record.Password = &account;
        record.Shadow = &shadow;
    }
    AccountRecord(const AccountRecord&) = delete;
    AccountRecord& operator=(const AccountRecord&) = delete;
};

} // namespace

void createMailbox(Session& session, const Address& address, const std::string& hash,
                   const Quota& quota, Mailbox::Type type)
{
    std::string field = hash;
    AccountRecord account(address, field.data(), type);
    conclude(session,
             session.transaction.createMailboxWithHash(&account.record, address.domain,
                                                       address.user, libraryText(quota)),
             {PostfixResult::MailboxCreated},
             "the mailbox " + address.text + " could not be created");
}

void writeUserLine(Session& session, const Address& address, const Quota& quota, Mailbox::Type type)
{
    AccountRecord account(address, nullptr, type);
    int code = session.library.Postfix_PasswdFile(&account.record);
    if (code == PostfixResult::Done && quota)
        code = DovecotManager().addDovecotQuota(address.text, account.home, std::to_string(*quota));
    conclude(session, code, {PostfixResult::Done},
             "the line of " + address.text + " in " VPASSWDFILE " could not be made");
}

void writePasswordLine(Session& session, const Address& address)
{
    std::string password = randomPassword();
    AccountRecord account(address, password.data(), Mailbox::User);
    conclude(session, session.library.Postfix_ShadowFile(&account.record), {PostfixResult::Done},
             "the line of " + address.text + " in " VSHADOWFILE " could not be made");
}

// No limit is written by deleting the quota: a "-1" in Dovecot's fields makes it refuse the user.
void writeQuota(Session& session, const std::string& address, const Quota& quota)
{
    conclude(session,
             session.library.Postfix_VQuota(address, libraryText(quota),
                                            quota ? "UpdateQuota" : "DeleteQuota"),
             {PostfixResult::Done, PostfixResult::QuotaUpdated},
             "the quota of " + address + " could not be changed");
}

void writeType(Session& session, const std::string& address, Mailbox::Type type)
{
    conclude(session,
             session.library.Postfix_UpdateMailbox(
                 address, type == Mailbox::Admin ? "admin" : "user", "UpdateUserType"),
             {PostfixResult::Updated}, "the type of " + address + " could not be changed");
}

void writeHashes(Session& session, const std::vector<std::pair<std::string, std::string>>& hashes)
{
    conclude(session, session.transaction.storePasswordHashes(hashes), {PostfixResult::Updated},
             hashes.size() == 1 ? "the password of " + hashes[0].first + " could not be changed"
                                : "the passwords could not be changed");
}

// A forwarder is written by the calls for lists: they write the same lines and rows.
void writeForwards(Session& session, const std::string& address, const Addresses& targets,
                   bool hasEntry)
{
    // One text with commas: the form that is read from files and from the database.
    std::string text;
    for (const std::string& target : targets)
        text += (text.empty() ? "" : ",") + target;
    VectorString elements = {text};
    conclude(session,
             session.library.Postfix_VList(address, &elements, hasEntry ? "UpdateList" : "AddList"),
             {PostfixResult::ListAdded, PostfixResult::ListUpdated},
             (targets.size() > 1 ? "the list " : "the forwarder ") + address +
                 " could not be written");
}

// With a database, deleting an alias gives the address a row for itself, which a mailbox needs.
// Without a mailbox the server would then take its mail and return it: deleted as a list, the
// address has no row left.
void removeForwards(Session& session, const std::string& address, bool hasMailbox)
{
    VectorString none;
    const int code = session.settings.usesSql && !hasMailbox
                         ? session.library.Postfix_VList(address, &none, "DeleteList")
                         : session.library.Postfix_VAlias(address, "", "DeleteAlias");
    conclude(session, code, {PostfixResult::ListDeleted, PostfixResult::AliasDeleted},
             "the forwarder " + address + " could not be deleted");
}

void writeCatchAll(Session& session, const std::string& domain, const std::string& user)
{
    conclude(session, session.library.Postfix_UpdateCatchAllAddress(domain, user),
             {PostfixResult::CatchAllSet}, "the catch-all of " + domain + " could not be set");
}

void removeCatchAll(Session& session, const std::string& domain)
{
    conclude(session, session.library.Postfix_RemoveCatchAllAddress(domain),
             {PostfixResult::CatchAllRemoved},
             "the catch-all of " + domain + " could not be removed");
}

std::string libraryText(const Quota& quota)
{
    return quota ? std::to_string(*quota) : UnlimitedQuota;
}
