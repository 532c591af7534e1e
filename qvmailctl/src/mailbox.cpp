// mailbox add | passwd | type | delete | list | count | show
#include "Checks.h"
#include "Commands.h"
#include "Maps.h"
#include "Output.h"
#include "Passwords.h"
#include "Results.h"

#include <pwd.h>
#include <unistd.h>

namespace
{

void add(Host& host, const Given& given)
{
    Address address = checkedAddress(given.name);
    const std::string quota = checkedQuota(given.quota);
    Password password(address.text);
    beginChange(host);

    requireHosted(host, address.domain);
    const std::string homes = VSPOOLDIR "/" + address.domain + "/mail/home";
    if (access(homes.c_str(), F_OK) != 0)
        refuse("the directory " + homes +
               " is missing, so the mailbox would get no home; is the "
               "spool mounted?");
    requireFree(host, address.text);

    const struct passwd* const owner = getpwnam("qvadmin"); // there: beginChange has looked
    std::string home = homes + "/" + address.text;
    std::string mark = "x";
    std::string shell = "/bin/false";
    struct passwd account = {};
    account.pw_name = account.pw_gecos = address.text.data();
    account.pw_passwd = mark.data();
    account.pw_uid = owner->pw_uid;
    account.pw_gid = owner->pw_gid;
    account.pw_dir = home.data();
    account.pw_shell = shell.data();
    struct spwd shadow = {};
    shadow.sp_namp = address.text.data();
    shadow.sp_pwdp = password.buffer();
    shadow.sp_expire = -1;
    shadow.sp_flag = 0; // an ordinary user
    SvpopUser record = {&account, &shadow, {}};

    conclude(host, host.library.Postfix_CreateMailbox(&record, address.domain, address.user, quota),
             {PostfixResult::MailboxCreated},
             "the mailbox " + address.text + " could not be created");
}

void setPassword(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const Password password(address.text);
    beginChange(host);
    requireMailbox(host, address.text);
    conclude(host,
             host.library.Postfix_UpdateMailbox(address.text, password.text(), "UpdatePasswd"),
             {PostfixResult::Updated}, "the password of " + address.text + " could not be changed");
}

void type(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    if (given.value != "admin" && given.value != "user")
        refuse("the type \"" + given.value + "\" is unknown: it is admin or user");
    beginChange(host);
    if (host.settings.onTables)
        refuse("the database keeps no user type; it exists with map files alone");
    requireMailbox(host, address.text);
    conclude(host, host.library.Postfix_UpdateMailbox(address.text, given.value, "UpdateUserType"),
             {PostfixResult::Updated}, "the type of " + address.text + " could not be changed");
}

// What a deletion that failed half-way leaves, and a new mailbox of that address would inherit.
bool hasSpoolFiles(const Address& address)
{
    const std::string mail = VSPOOLDIR "/" + address.domain + "/mail";
    return access((mail + "/home/" + address.text).c_str(), F_OK) == 0 ||
           access((mail + "/inbox/" + address.text).c_str(), F_OK) == 0;
}

void remove(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    confirm(host, "the mailbox " + address.text + " with all its mail");
    beginChange(host);

    if (mailboxState(host, address.text) == Mailbox::None && !hasSpoolFiles(address))
        notThere("there is no mailbox " + address.text);
    if (catchAllOf(host, address.domain) == address.text)
        refuse(address.text + " is the catch-all of its domain; set another with \"qvmailctl "
                              "catchall set\" or take it away with \"catchall remove\" first");

    conclude(host, host.library.Postfix_DeleteMailbox(address.user, address.domain),
             {PostfixResult::MailboxDeleted},
             "the mailbox " + address.text + " could not be deleted");
    if (!host.settings.onTables)
        for (const std::string& forwarder : forwardersTo(address.text))
            tell("note: " + forwarder + " still forwards to " + address.text);
}

VectorString mailboxesOfHosted(Host& host, const Given& given)
{
    const std::string domain = checkedDomain(given.name);
    beginQuery(host);
    requireHosted(host, domain);
    return mailboxesOf(host, domain);
}

void list(Host& host, const Given& given)
{
    for (const std::string& mailbox : mailboxesOfHosted(host, given))
        answer(mailbox);
}

// By way of the list: the library's count says 63 for 63 mailboxes and for a failure.
void count(Host& host, const Given& given)
{
    answer(std::to_string(mailboxesOfHosted(host, given).size()));
}

void show(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginQuery(host);
    requireMailbox(host, address.text);
    const std::string quota = quotaOf(host, address.text);
    answer("address: " + address.text);
    answer("quota: " + (quota == Unlimited ? "unlimited" : quota));
    for (const std::string& destination : destinationsOf(host, address.text))
        answer("forwards to: " + destination);
    if (catchAllOf(host, address.domain) == address.text)
        answer("catch-all of: " + address.domain);
}

} // namespace

Object mailboxCommands()
{
    return {"mailbox",
            "Mailboxes",
            {{"add", "Add a mailbox", {"ADDRESS"}, add, true},
             {"passwd", "Change its password", {"ADDRESS"}, setPassword},
             {"type",
              "Make its user an administrator (admin) or not (user)",
              {"ADDRESS", "TYPE"},
              type},
             {"delete", "Delete a mailbox and its mail", {"ADDRESS"}, remove},
             {"list", "List a domain's mailboxes", {"DOMAIN"}, list},
             {"count", "Count a domain's mailboxes", {"DOMAIN"}, count},
             {"show", "Show its quota and where its mail goes", {"ADDRESS"}, show}}};
}
