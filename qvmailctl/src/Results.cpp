#include "Results.h"

#include "Host.h"

namespace
{

using namespace PostfixResult;

enum Backend { Files, Tables, Either };

struct Outcome {
    const char* operation;
    int code;
    int errNo; // which step failed, for operations of several steps
    Backend backend;
    const char* meaning; // null: success
};

constexpr int AnyStep = -1000;
constexpr const char* Succeeded = nullptr;
constexpr const char* DatabaseFailed =
    "the database refused a statement or the connection was lost; see the database server's log";
constexpr const char* MapNotOpened = "a map below /etc/vmail could not be opened";
constexpr const char* ListedOnly =
    "the domain is listed and has its spool tree, but its first mailbox could not be created; look "
    "at the account files below /etc/vmail or at the database, then run the command again";

// clang-format off
const Outcome Outcomes[] = {
    {"Postfix_CreateMailDomain", DomainCreated, AnyStep, Either, Succeeded},
    {"Postfix_CreateMailDomain", DomainNotCreated, MailboxNotCreated, Either, ListedOnly},
    {"Postfix_CreateMailDomain", DomainNotCreated, Failed, Files, "the list /etc/VirtualHosts, the spool tree or the first mailbox's home directory could not be made; look at the rights and free space below /etc and /var/spool/vmail, then run the command again"},
    {"Postfix_CreateMailDomain", DomainNotCreated, Failed, Tables, "the database refused the domain, or its spool tree or the first mailbox's home directory could not be made; look at /var/spool/vmail, then run the command again"},
    {"Postfix_DeleteMailDomain", DomainDeleted, AnyStep, Either, Succeeded},
    {"Postfix_DeleteMailDomain", RequestFailed, Failed, Files, "the list /etc/VirtualHosts or a file below /etc/vmail could not be opened; what comes before it in the order list, vpasswd, vshadow, vmaps.txt, vquota.txt is done; run the command again"},
    {"Postfix_DeleteMailDomain", RequestFailed, Failed, Tables, "the database refused to remove the domain or its aliases; run the command again"},
    {"Postfix_DeleteMailDomain", Failed, AnyStep, Tables, "the domain is off the list, but the database refused to remove its mailboxes; run the command again"},
    {"Postfix_CreateMailbox", MailboxCreated, AnyStep, Either, Succeeded},
    {"Postfix_CreateMailbox", MailboxNotCreated, MailboxNotCreated, Files, "/etc/vmail/vpasswd or /etc/vmail/vshadow could not be written; remove what there is with \"qvmailctl mailbox delete\" before the next try"},
    {"Postfix_CreateMailbox", MailboxNotCreated, Failed, Files, "the account is there, but its quota line could not be added; remove the mailbox with \"qvmailctl mailbox delete\" before the next try"},
    {"Postfix_CreateMailbox", MailboxNotCreated, AnyStep, Tables, DatabaseFailed},
    {"Postfix_CreateMailbox", Failed, AnyStep, Either, "the account is there, but its home directory could not be made; look at /var/spool/vmail, and remove the mailbox with \"qvmailctl mailbox delete\" before the next try"},
    {"Postfix_DeleteMailbox", MailboxDeleted, AnyStep, Either, Succeeded},
    {"Postfix_DeleteMailbox", MailboxNotDeleted, GroupUnknown, Files, "the group \"qvadmin\" is unknown; add it and run the command again"},
    {"Postfix_DeleteMailbox", MailboxNotDeleted, Failed, Files, "the account lines are gone, but vmaps.txt or vquota.txt below /etc/vmail could not be opened; its mail still lies in the spool"},
    {"Postfix_DeleteMailbox", MailboxNotDeleted, AnyStep, Tables, DatabaseFailed},
    {"Postfix_UpdateMailbox", Updated, AnyStep, Either, Succeeded},
    {"Postfix_UpdateMailbox", Failed, AnyStep, Files, "/etc/vmail/vpasswd or /etc/vmail/vshadow could not be opened"},
    {"Postfix_UpdateMailbox", Failed, AnyStep, Tables, DatabaseFailed},
    {"Postfix_VQuota", QuotaUpdated, AnyStep, Either, Succeeded},
    {"Postfix_VQuota", Done, AnyStep, Either, Succeeded},
    {"Postfix_VQuota", Failed, AnyStep, Files, MapNotOpened},
    {"Postfix_VQuota", Failed, AnyStep, Tables, DatabaseFailed},
    {"Postfix_VAlias", AliasAdded, AnyStep, Either, Succeeded},
    {"Postfix_VAlias", AliasDeleted, AnyStep, Either, Succeeded},
    {"Postfix_VAlias", Updated, AnyStep, Either, Succeeded},
    {"Postfix_VAlias", RequestFailed, AnyStep, Tables, DatabaseFailed},
    {"Postfix_VAlias", Failed, AnyStep, Files, MapNotOpened},
    {"Postfix_VList", ListAdded, AnyStep, Either, Succeeded},
    {"Postfix_VList", ListUpdated, AnyStep, Either, Succeeded},
    {"Postfix_VList", ListDeleted, AnyStep, Either, Succeeded},
    {"Postfix_VList", RequestFailed, AnyStep, Tables, "the database refused a statement; when the members were to be replaced, the old ones may be gone: look with \"qvmailctl list show\""},
    {"Postfix_VList", Failed, AnyStep, Tables, DatabaseFailed},
    {"Postfix_VList", RequestFailed, AnyStep, Files, MapNotOpened},
    {"Postfix_VList", Failed, AnyStep, Files, MapNotOpened},
    {"Postfix_UpdateCatchAllAddress", CatchAllSet, AnyStep, Either, Succeeded},
    {"Postfix_UpdateCatchAllAddress", CatchAllNotSet, AnyStep, Files, MapNotOpened},
    {"Postfix_UpdateCatchAllAddress", CatchAllNotSet, AnyStep, Tables, DatabaseFailed},
    {"Postfix_RemoveCatchAllAddress", CatchAllRemoved, AnyStep, Either, Succeeded},
    {"Postfix_RemoveCatchAllAddress", CatchAllNotRemoved, AnyStep, Tables, DatabaseFailed},
    {"Postfix_GetMailboxList", Done, AnyStep, Either, Succeeded},
    {"Postfix_GetMailboxList", NotRead, AnyStep, Files, "/etc/vmail/vpasswd could not be read"},
    {"Postfix_GetMailboxList", NotRead, AnyStep, Tables, DatabaseFailed},
    {"Postfix_GetLists", Done, AnyStep, Either, Succeeded},
    {"Postfix_GetLists", NotRead, AnyStep, Files, "/etc/vmail/valias.txt could not be read"},
    {"Postfix_GetLists", NotRead, AnyStep, Tables, DatabaseFailed},
    {"Postfix_GetListSettings", Done, AnyStep, Either, Succeeded},
    {"Postfix_GetListSettings", NotRead, AnyStep, Files, "/etc/vmail/valias.txt could not be read"},
    {"Postfix_GetListSettings", NotRead, AnyStep, Tables, DatabaseFailed},
    {"Postfix_RetrieveDomainQuota", TotalRead, AnyStep, Either, Succeeded},
    {"Postfix_RetrieveDomainQuota", TotalUnlimited, AnyStep, Either, Succeeded},
    {"Postfix_RetrieveDomainQuota", TotalNotRead, AnyStep, Files, Succeeded}, // no map: no quotas
    {"Postfix_RetrieveDomainQuota", TotalNotRead, AnyStep, Tables, DatabaseFailed},
};
// clang-format on

} // namespace

void refuse(const std::string& sentence)
{
    throw Stop{Status::Refused, sentence};
}

void notThere(const std::string& sentence)
{
    throw Stop{Status::NotThere, sentence};
}

void conclude(const Host& host, const std::string& operation, int code)
{
    const Backend backend = host.settings.onTables ? Tables : Files;
    for (const Outcome& outcome : Outcomes) {
        if (operation != outcome.operation || code != outcome.code)
            continue;
        if (outcome.errNo != AnyStep && outcome.errNo != host.library.ErrNo)
            continue;
        if (outcome.backend != Either && outcome.backend != backend)
            continue;
        if (outcome.meaning == Succeeded)
            return;
        throw Stop{Status::Failed, std::string(outcome.meaning) + " (" + operation + " answered " +
                                       std::to_string(code) + ")"};
    }
    throw Stop{Status::Failed, operation + " answered " + std::to_string(code) + ", last step " +
                                   std::to_string(host.library.ErrNo)};
}
