// quota set | delete | show
#include "Checks.h"
#include "Commands.h"
#include "Maps.h"
#include "Output.h"
#include "Results.h"

namespace
{

// No limit is no quota: a "-1" in the delivery agent's fields makes Dovecot refuse the user.
void change(Host& host, const std::string& address, const std::string& quota)
{
    const char* const task = quota == Unlimited ? "DeleteQuota" : "UpdateQuota";
    conclude(host, host.library.Postfix_VQuota(address, quota, task),
             {PostfixResult::Done, PostfixResult::QuotaUpdated},
             "the quota of " + address + " could not be changed");
}

void set(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const std::string quota = checkedQuota(given.value);
    beginChange(host);
    requireMailbox(host, address.text);
    change(host, address.text, quota);
}

void remove(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginChange(host);
    // A quota that outlived its mailbox may go too.
    if (host.settings.onTables || !hasEntry(VQUOTAFILE, address.text))
        requireMailbox(host, address.text);
    change(host, address.text, Unlimited);
}

void show(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginQuery(host);
    requireMailbox(host, address.text);
    const std::string quota = quotaOf(host, address.text);
    answer(quota == Unlimited ? "unlimited" : quota);
}

} // namespace

Object quotaCommands()
{
    return {"quota",
            "Mailbox quotas",
            {{"set", "Set a quota: bytes, or with K, M or G", {"ADDRESS", "SIZE"}, set},
             {"delete", "Take the limit away", {"ADDRESS"}, remove},
             {"show", "Show the quota in bytes", {"ADDRESS"}, show}}};
}
