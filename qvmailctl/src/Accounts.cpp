#include "Accounts.h"

#include "MapFiles.h"
#include "Results.h"

#include <grp.h>
#include <pwd.h>

void createMailbox(Host& host, const Address& address, char* password, const Quota& quota,
                   Mailbox::Type type)
{
    const bool isAdmin = type == Mailbox::Admin;
    // The accounts and groups are there: beginChange has looked.
    const uid_t owner = getpwnam("qvadmin")->pw_uid;
    const gid_t group = isAdmin ? getgrnam("mail")->gr_gid : getpwnam("qvadmin")->pw_gid;
    std::string name = address.text;
    std::string home = VSPOOLDIR "/" + address.domain + "/mail/home/" + address.text;
    std::string mark = "x";
    std::string shell = "/bin/false";
    struct passwd account = {};
    account.pw_name = account.pw_gecos = name.data();
    account.pw_passwd = mark.data();
    account.pw_uid = owner;
    account.pw_gid = group;
    account.pw_dir = home.data();
    account.pw_shell = shell.data();
    struct spwd shadow = {};
    shadow.sp_namp = name.data();
    shadow.sp_pwdp = password;
    shadow.sp_expire = -1;
    shadow.sp_flag = isAdmin ? 1 : 0;
    SvpopUser record = {&account, &shadow, {}};

    conclude(host,
             host.library.Postfix_CreateMailbox(&record, address.domain, address.user,
                                                libraryText(quota)),
             {PostfixResult::MailboxCreated},
             "the mailbox " + address.text + " could not be created");
}

std::string libraryText(const Quota& quota)
{
    return quota ? std::to_string(*quota) : "-1";
}
