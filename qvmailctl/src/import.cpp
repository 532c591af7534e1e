// import FILE
#include "system/LargeFilesAndDates.h"

#include "Accounts.h"
#include "Checks.h"
#include "Commands.h"
#include "Document.h"
#include "Interruption.h"
#include "Passwords.h"
#include "Results.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_set>

#include <fcntl.h>
#include <unistd.h>

namespace
{

// ---- Reading ----

// Makes the text larger, and wipes the memory that it had.
void makeRoom(std::string& text)
{
    constexpr std::size_t Least = std::size_t{1} << 20U;
    if (text.size() < text.capacity())
        return;
    std::string larger;
    larger.reserve(std::max(Least, 2 * text.size()));
    larger = text;
    wipe(text);
    text.swap(larger);
}

// Refuses a NUL: the parser would take it for the end and pass over everything behind it. The text
// is searched piece by piece as it is read: a file with a hole would fill the memory.
void refuseNul(const std::string& text, std::size_t from)
{
    const std::size_t place = text.find('\0', from);
    if (place != std::string::npos)
        stop(Status::Refused,
             "the document is no JSON: it holds a NUL at byte " + std::to_string(place + 1));
}

// The document's file, or standard input, which stays open.
class Input
{
public:
    explicit Input(const std::string& file)
        : m_descriptor(file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC))
    {
    }
    ~Input()
    {
        if (m_descriptor > STDIN_FILENO)
            close(m_descriptor);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    int number() const { return m_descriptor; }

private:
    int m_descriptor;
};

std::string contentOf(const std::string& file)
{
    const Input input(file);
    constexpr std::size_t Piece = std::size_t{1} << 18U;
    constexpr std::size_t LargestDocument = std::size_t{1} << 30U; // of millions of mailboxes
    std::string text;
    ssize_t count = input.number() < 0 ? -1 : 1;
    while (count > 0) {
        if (text.size() > LargestDocument)
            stop(Status::Refused, shown(file) + " is larger than 1 GiB: that is no document");
        makeRoom(text);
        const std::size_t size = text.size();
        text.resize(std::min(text.capacity(), size + Piece));
        do {
            waitForInput(input.number());
            count = read(input.number(), text.data() + size, text.size() - size);
        } while (count < 0 && errno == EINTR);
        text.resize(size + std::max<ssize_t>(count, 0));
        refuseNul(text, size);
    }
    const int failure = count < 0 ? errno : 0;
    if (failure != 0)
        stop(failure == ENOENT ? Status::NotThere : Status::NotWritten,
             shown(file) + " cannot be read: " + strerror(failure));
    return text;
}

// ---- Checks that need this host ----

void requireCatchAll(const Hosting& hosting, const DomainPart& part, std::size_t index)
{
    const std::string catchAll = part.catchAll.value_or("");
    const bool isInDocument =
        std::any_of(part.mailboxes.begin(), part.mailboxes.end(),
                    [&](const Account& account) { return account.address.text == catchAll; });
    if (!catchAll.empty() && !isInDocument && hosting.mailbox(catchAll) == nullptr)
        refuseAt(placeOf(index) + ".catch_all",
                 "there is no mailbox " + catchAll + ", here or in the document");
}

void requireNoMailbox(const Hosting& hosting, const std::string& address)
{
    if (hosting.mailbox(address) != nullptr)
        stop(Status::Exists, address + " is a mailbox here, so the document cannot have it as an "
                                       "alias or a list; a mailbox has \"forwards_to\"");
}

// Called before anything is written.
void checkOnHost(const Session& session, const Hosting& hosting, const Document& document)
{
    std::unordered_set<std::string> inCapitals;
    for (const auto& [address, mailbox] : hosting.mailboxes)
        if (lowerCase(address) != address)
            inCapitals.insert(lowerCase(address));

    for (std::size_t i = 0; i < document.size(); ++i) {
        const DomainPart& part = document[i];
        const bool isHosted = hosting.hosts(part.domain);
        requireCatchAll(hosting, part, i);
        for (const Forwarding& forwarding : part.forwardings)
            requireNoMailbox(hosting, forwarding.address.text);
        for (std::size_t j = 0; j < part.mailboxes.size(); ++j) {
            const Account& account = part.mailboxes[j];
            const std::string& address = account.address.text;
            if (hosting.mailbox(address) != nullptr) {
                requireMailbox(hosting, address);
                continue;
            }
            if (account.hash.empty() && account.password.empty())
                refuseAt(placeOf(i, j), "the mailbox " + address +
                                            " is new, and needs a \"hash\" or a \"password\"");
            if (inCapitals.count(address) > 0)
                stop(Status::Exists,
                     "the mailbox " + address + " exists already, with capital letters");
            if (isHosted)
                requireHomes(part.domain);
            requireFree(session, hosting, account.address);
        }
    }
}

// ---- Writing ----

using Hashes = std::vector<std::pair<std::string, std::string>>;

// Sets where the address forwards to, unless it does so already.
void setForwards(Session& session, const Hosting& hosting, const std::string& address,
                 const Addresses& targets, bool hasMailbox)
{
    const Addresses former = forwardsOf(hosting, address);
    if (areSame(former, targets))
        return;
    const Kind kind =
        !hasMailbox && std::max(former.size(), targets.size()) > 1 ? Kind::List : Kind::Alias;
    if (targets.empty()) {
        removeForwards(session, address, hasMailbox);
        session.changes.removed(kind, address);
        return;
    }
    // A mailbox that was made just now has its self row.
    const bool isNewMailbox = hasMailbox && hosting.mailbox(address) == nullptr;
    writeForwards(session, address, targets,
                  hosting.hasEntry(address) || (isNewMailbox && session.settings.usesSql));
    const std::string target = targets.size() == 1 ? targets[0] : "";
    if (former.empty())
        session.changes.added(kind, address, target);
    else
        session.changes.changed(kind, address, target);
}

void addMailbox(Session& session, Account& account)
{
    const std::string& address = account.address.text;
    const Quota quota = account.quota.value_or(std::nullopt);
    if (account.hash.empty()) // kept for another try: hashOf wipes the password
        account.hash = hashOf(account.password);
    std::string hash = account.hash;
    if (!account.isEnabled.value_or(true))
        hash.insert(hash.begin(), DisabledMark);
    createMailbox(session, account.address, hash, quota,
                  account.type == Mailbox::Admin ? Mailbox::Admin : Mailbox::User);
    session.changes.added(Kind::Mailbox, address);
    if (quota)
        session.changes.added(Kind::Quota, address, textOf(quota));
}

void setQuota(Session& session, const std::string& address, const Quota& former, const Quota& quota)
{
    if (former == quota)
        return;
    writeQuota(session, address, quota);
    if (!quota)
        session.changes.removed(Kind::Quota, address);
    else if (former)
        session.changes.changed(Kind::Quota, address, textOf(quota));
    else
        session.changes.added(Kind::Quota, address, textOf(quota));
}

// Leaves a clear password alone: nobody can see whether the mailbox has it already.
void changeMailbox(Session& session, const Mailbox& mailbox, const Account& account, Hashes& hashes)
{
    const std::string& address = account.address.text;
    const std::string former = mailbox.isEnabled() ? mailbox.hash : mailbox.hash.substr(1);
    const bool isEnabled = account.isEnabled.value_or(mailbox.isEnabled());
    const std::string hash = (isEnabled ? "" : std::string(1, DisabledMark)) +
                             (account.hash.empty() ? former : account.hash);
    const bool isOtherHash = hash != mailbox.hash;
    const bool isOtherType = !session.settings.usesSql && account.type != Mailbox::Unknown &&
                             account.type != mailbox.type;
    if (isOtherHash)
        hashes.emplace_back(address, hash);
    if (isOtherType)
        writeType(session, address, account.type);
    if (isOtherHash || isOtherType)
        session.changes.changed(Kind::Mailbox, address);
    if (account.quota)
        setQuota(session, address, mailbox.quota, *account.quota);
}

void setCatchAll(Session& session, const Hosting& hosting, const DomainPart& part)
{
    const std::string former = hosting.catchAllOf(part.domain);
    const std::string catchAll = part.catchAll.value_or(former);
    if (catchAll == former)
        return;
    if (catchAll.empty()) {
        removeCatchAll(session, part.domain);
        session.changes.removed(Kind::CatchAll, part.domain);
        return;
    }
    writeCatchAll(session, part.domain, catchAll.substr(0, catchAll.find('@')));
    if (former.empty())
        session.changes.added(Kind::CatchAll, part.domain, catchAll);
    else
        session.changes.changed(Kind::CatchAll, part.domain, catchAll);
}

void addDomain(Session& session, const std::string& domain)
{
    const std::string failure = "the domain " + domain + " could not be created";
    conclude(session, session.library.Postfix_VHostFile(domain, "AddDomain"), {PostfixResult::Done},
             failure);
    conclude(session, session.library.Postfix_CreateDomDir(domain), {PostfixResult::Done}, failure);
    session.changes.added(Kind::Domain, domain);
}

void write(Session& session, const Hosting& hosting, Document& document)
{
    std::size_t steps = 0;
    std::set<std::string> newDomains;
    for (const DomainPart& part : document) {
        steps += part.mailboxes.size() + part.forwardings.size();
        if (!hosting.hosts(part.domain))
            newDomains.insert(part.domain);
    }
    warnOfOwnNames(newDomains);

    for (const std::string& domain : newDomains)
        addDomain(session, domain);
    // First, because each of these rewrites the mailbox map, which new mailboxes will make long.
    for (const DomainPart& part : document)
        setCatchAll(session, hosting, part);

    Progress progress(steps, !session.options.verbose);
    Hashes hashes;
    for (DomainPart& part : document) {
        for (Account& account : part.mailboxes) {
            stopIfInterrupted();
            const std::string& address = account.address.text;
            if (const Mailbox* const mailbox = hosting.mailbox(address))
                changeMailbox(session, *mailbox, account, hashes);
            else
                addMailbox(session, account);
            if (account.forwardsTo)
                setForwards(session, hosting, address, *account.forwardsTo, true);
            progress.step();
        }
        for (const Forwarding& forwarding : part.forwardings) {
            setForwards(session, hosting, forwarding.address.text, forwarding.targets, false);
            progress.step();
        }
    }
    if (!hashes.empty())
        writeHashes(session, hashes);
}

void tellLostTypes(const Document& document)
{
    std::size_t lost = 0;
    for (const DomainPart& part : document)
        lost += std::count_if(part.mailboxes.begin(), part.mailboxes.end(),
                              [](auto& account) { return account.type == Mailbox::Admin; });
    if (lost > 0)
        tell("note: the database keeps no user type; \"admin\" is lost of " + std::to_string(lost) +
             (lost == 1 ? " mailbox" : " mailboxes"));
}

Answer importAll(Session& session, const Given& given)
{
    watchInterruptions();
    std::string text = contentOf(given.name);
    Document document = readDocument(text);
    change(session, [&] {
        const Hosting hosting = session.read(everything());
        checkOnHost(session, hosting, document);
        if (session.settings.usesSql)
            tellLostTypes(document);
        write(session, hosting, document);
    });
    return {};
}

} // namespace

Object importCommand()
{
    return {"import",
            "Make what a document of \"export\" says, or one with \"password\" for new accounts",
            {{"",
              "Make what a JSON document says, as one change. What it does not name is left alone. "
              "FILE may be - for standard input",
              {"FILE"},
              ChangeOptions | TakeOver,
              "  qvmailctl import new-accounts.json --dry-run\n"
              "  qvmailctl import hosting.json --take-over\n"
              "  ssh root@other.example.com qvmailctl export | qvmailctl import -",
              importAll}}};
}
