#include "Accounts.h"

#include "DovecotManager.h"
#include "MapFiles.h"
#include "Results.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace
{

// A mailbox's account as the library takes it. The strings that the record points to live beside it.
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

    // The accounts and groups are there: beginChange has looked.
    AccountRecord(const Address& address, char* password, Mailbox::Type type)
        : name(address.text), home(VSPOOLDIR "/" + address.domain + "/mail/home/" + address.text)
    {
        const bool isAdmin = type == Mailbox::Admin;
        account.pw_name = account.pw_gecos = name.data();
        account.pw_passwd = mark.data();
        account.pw_uid = getpwnam("qvadmin")->pw_uid;
        account.pw_gid = isAdmin ? getgrnam("mail")->gr_gid : getpwnam("qvadmin")->pw_gid;
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

void createMailbox(Host& host, const Address& address, char* password, const Quota& quota,
                   Mailbox::Type type)
{
    AccountRecord account(address, password, type);
    conclude(host,
             host.library.Postfix_CreateMailbox(&account.record, address.domain, address.user,
                                                libraryText(quota)),
             {PostfixResult::MailboxCreated},
             "the mailbox " + address.text + " could not be created");
}

void writeUserLine(Host& host, const Address& address, const Quota& quota, Mailbox::Type type)
{
    AccountRecord account(address, nullptr, type);
    int code = host.library.Postfix_PasswdFile(&account.record);
    if (code == PostfixResult::Done && quota)
        code = DovecotManager().addDovecotQuota(address.text, account.home, std::to_string(*quota));
    conclude(host, code, {PostfixResult::Done},
             "the line of " + address.text + " in " VPASSWDFILE " could not be made");
}

void writePasswordLine(Host& host, const Address& address)
{
    constexpr const char* Letters = "abcdefghijklmnopqrstuvwxyzABCDEF";
    std::string password(48, ' ');
    if (getentropy(password.data(), password.size()) != 0)
        stop(Status::NotFit, "the system gives no random numbers for a password");
    for (char& c : password)
        c = Letters[static_cast<unsigned char>(c) % 32U];
    AccountRecord account(address, password.data(), Mailbox::User);
    conclude(host, host.library.Postfix_ShadowFile(&account.record), {PostfixResult::Done},
             "the line of " + address.text + " in " VSHADOWFILE " could not be made");
}

std::string libraryText(const Quota& quota)
{
    return quota ? std::to_string(*quota) : "-1";
}
