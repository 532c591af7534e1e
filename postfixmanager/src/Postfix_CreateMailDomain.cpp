#include "CallTrace.h"
#include "maps/MapRewrite.h"
#include "system/DomainTree.h"
#include "system/SystemAccounts.h"

#include <algorithm>

namespace
{

constexpr std::size_t PasswordBufferSize = 256; // at least; hashing overwrites the first 9 bytes

// The first mailbox's account. The strings that the record points to live beside it.
struct FirstMailbox {
    std::string address;
    std::string home;
    std::string password;
    char passwordField[2] = "x";
    char shell[11] = "/bin/false";
    passwd account{};
    spwd shadow{};
    SvpopUser record{};

    FirstMailbox(const std::string& domain, const std::string& user,
                 const std::string& clearPassword, const passwd& owner)
        : address(user + "@" + domain), home(homeOf(domain, address)), password(clearPassword)
    {
        password.resize(std::max(password.size(), PasswordBufferSize));

        account.pw_name = address.data();
        account.pw_passwd = passwordField;
        account.pw_uid = owner.pw_uid;
        account.pw_gid = owner.pw_gid;
        account.pw_gecos = address.data();
        account.pw_dir = home.data();
        account.pw_shell = shell;

        shadow.sp_namp = address.data();
        shadow.sp_pwdp = password.data();
        shadow.sp_min = -1;
        shadow.sp_max = 99999;
        shadow.sp_warn = -1;
        shadow.sp_inact = -1;
        shadow.sp_expire = -1;
        shadow.sp_flag = 1;

        record.Password = &account;
        record.Shadow = &shadow;
    }
    FirstMailbox(const FirstMailbox&) = delete;
    FirstMailbox& operator=(const FirstMailbox&) = delete;
};

} // namespace

int PostfixManager::Postfix_CreateMailDomain(std::string DomainName, std::string UserName,
                                             std::string Passwd, std::string Quota)
{
    traceCall(*this, "Postfix_CreateMailDomain", {DomainName, UserName, Passwd, Quota},
              {"DomainName", "UserName", "Passwd", "Quota"});

    ErrNo = Postfix_VHostFile(DomainName, "AddDomain");
    if (ErrNo != PostfixResult::Done)
        return PostfixResult::DomainNotCreated;

    ErrNo = Postfix_CreateDomDir(DomainName);
    if (ErrNo != PostfixResult::Done)
        return PostfixResult::DomainNotCreated;

    const passwd* const owner = getpwnam(MailOwner);
    if (owner == nullptr)
        return PostfixResult::DomainNotCreated;
    FirstMailbox mailbox(DomainName, UserName, Passwd, *owner);
    ErrNo = Postfix_CreateMailbox(&mailbox.record, DomainName, UserName, Quota);
    if (ErrNo != PostfixResult::MailboxCreated)
        return PostfixResult::DomainNotCreated;

    publish(MailboxMapWriter);
    return PostfixResult::DomainCreated;
}
