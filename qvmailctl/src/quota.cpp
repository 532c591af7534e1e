// quota set | delete | show
#include "Checks.h"
#include "Commands.h"
#include "Maps.h"
#include "Output.h"
#include "Results.h"

#include <unistd.h>

namespace
{

bool isMapMissing(const Host& host)
{
    return !host.settings.onTables && access(VQUOTAFILE, F_OK) != 0;
}

// No limit is no quota: a "-1" in the delivery agent's fields makes Dovecot refuse the user.
void deleteQuota(Host& host, const std::string& address)
{
    const bool isFirst = isMapMissing(host);
    const int code = host.library.Postfix_VQuota(address, "", "DeleteQuota");
    if (!isFirst) // without a map only the delivery agent's fields could go
        conclude(host, "Postfix_VQuota", code);
}

void set(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const std::string quota = checkedQuota(given.value);
    beginChange(host);
    requireMailbox(host, address.text);
    if (!host.settings.onTables)
        refuseOthersHit(Doing::Changing, QuotaMap, address.text);

    if (quota == Unlimited)
        return deleteQuota(host, address.text);
    // An update fails without a map; adding makes it, but leaves the delivery agent's fields alone.
    if (isMapMissing(host))
        conclude(host, "Postfix_VQuota",
                 host.library.Postfix_VQuota(address.text, quota, "AddQuota"));
    conclude(host, "Postfix_VQuota",
             host.library.Postfix_VQuota(address.text, quota, "UpdateQuota"));
}

void remove(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginChange(host);
    // A quota that outlived its mailbox may go too.
    if (host.settings.onTables || !hasEntry(QuotaMap, address.text))
        requireMailbox(host, address.text);
    if (!host.settings.onTables)
        refuseOthersHit(Doing::Changing, QuotaMap, address.text);
    deleteQuota(host, address.text);
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
