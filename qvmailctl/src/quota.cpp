// quota set | delete | show
#include "Accounts.h"
#include "Checks.h"
#include "Commands.h"
#include "Results.h"

namespace
{

Answer set(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    const Quota quota = checkedQuota(given.value);
    change(session, [&] {
        const Hosting hosting = session.read(addressAlone(address), Accounts | Quotas);
        const bool hadEntry = hosting.quotas.count(address.text) > 0;
        session.changes.tellScripts("quota", jsonOf(quota));
        const bool isNews = requireMailbox(hosting, address.text).quota != quota;
        writeQuota(session, address.text,
                   quota); // even when it has it: Dovecot's fields may lack it
        if (!quota && hadEntry)
            session.changes.removed(Kind::Quota, address.text);
        else if (isNews && hadEntry)
            session.changes.changed(Kind::Quota, address.text, textOf(quota));
        else if (isNews)
            session.changes.added(Kind::Quota, address.text, textOf(quota));
    });
    return {};
}

Answer remove(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    change(session, [&] {
        const Hosting hosting = session.read(addressAlone(address), Accounts | Quotas);
        // The quota of a mailbox that is gone may be deleted too.
        if (hosting.quotas.count(address.text) == 0) {
            if (!session.options.ifThere)
                requireMailbox(hosting, address.text);
            return;
        }
        writeQuota(session, address.text, std::nullopt);
        session.changes.removed(Kind::Quota, address.text);
    });
    return {};
}

Answer show(Session& session, const Given& given)
{
    const Address address = checkedAddress(given.name);
    beginQuery(session);
    const Hosting hosting = session.read(addressAlone(address), Accounts | Quotas);
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
