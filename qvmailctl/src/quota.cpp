// quota set | delete | show
#include "Accounts.h"
#include "Checks.h"
#include "Commands.h"
#include "Results.h"

namespace
{

Answer set(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const Quota quota = checkedQuota(given.value);
    change(host, [&] {
        const Hosting hosting = host.read(addressAlone(address), Accounts | Quotas);
        const bool hadEntry = hosting.quotas.count(address.text) > 0;
        host.changes.tellScripts("quota", jsonOf(quota));
        const bool isNews = requireMailbox(hosting, address.text).quota != quota;
        writeQuota(host, address.text, quota); // even when it has it: Dovecot's fields may lack it
        if (!quota && hadEntry)
            host.changes.removed(Kind::Quota, address.text);
        else if (isNews && hadEntry)
            host.changes.changed(Kind::Quota, address.text, textOf(quota));
        else if (isNews)
            host.changes.added(Kind::Quota, address.text, textOf(quota));
    });
    return {};
}

Answer remove(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    change(host, [&] {
        const Hosting hosting = host.read(addressAlone(address), Accounts | Quotas);
        // The quota of a mailbox that is gone may be deleted too.
        if (hosting.quotas.count(address.text) == 0) {
            if (!host.options.ifThere)
                requireMailbox(hosting, address.text);
            return;
        }
        writeQuota(host, address.text, std::nullopt);
        host.changes.removed(Kind::Quota, address.text);
    });
    return {};
}

Answer show(Host& host, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginQuery(host);
    const Hosting hosting = host.read(addressAlone(address), Accounts | Quotas);
    const Quota quota = requireMailbox(hosting, address.text).quota;
    return {{{"address", address.text}, {"quota", jsonOf(quota)}}, {textOf(quota)}};
}

} // namespace

Object quotaCommands()
{
    return {"quota",
            "Mailbox quotas",
            {{"set",
              "Set a quota: bytes, or with K, M, G or T, or \"unlimited\"",
              {"ADDRESS", "SIZE"},
              ChangeOptions,
              "  qvmailctl quota set bob@example.com 500M\n"
              "  qvmailctl quota set bob@example.com 1.5G\n"
              "  qvmailctl quota set bob@example.com unlimited",
              set},
             {"delete",
              "Remove the limit of a mailbox",
              {"ADDRESS"},
              ChangeOptions | IfThere,
              "  qvmailctl quota delete bob@example.com",
              remove},
             {"show",
              "Show the quota of a mailbox in bytes",
              {"ADDRESS"},
              Nothing,
              "  qvmailctl quota show bob@example.com",
              show}}};
}
