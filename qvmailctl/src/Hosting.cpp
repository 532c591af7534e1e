#include "system/LargeFilesAndDates.h"

#include "Hosting.h"

#include "MapFiles.h"
#include "Output.h"
#include "Results.h"
#include "maps/LineReader.h"
#include "maps/MapLines.h"
#include "system/RegularFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <functional>
#include <memory>

namespace
{

bool isWanted(const Wanted& wanted, std::string_view address)
{
    if (!wanted.address.empty())
        return address == wanted.address;
    return wanted.domain.empty() || domainOf(address) == wanted.domain;
}

bool leadsToWanted(const Wanted& wanted, const Addresses& targets)
{
    return std::any_of(targets.begin(), targets.end(), [&](const std::string& target) {
        return equalIgnoringCase(target, wanted.address);
    });
}

// The same of a line whose targets are not taken apart yet: few hold the address at all.
bool mentionsWanted(const Wanted& wanted, std::string_view line)
{
    if (!wanted.forwarders)
        return false;
    const std::size_t before = wanted.address.find('@');
    for (std::size_t at = line.find('@'); at != std::string_view::npos; at = line.find('@', at + 1))
        if (at >= before &&
            equalIgnoringCase(line.substr(at - before, wanted.address.size()), wanted.address))
            return true;
    return false;
}

// -1 and 0 mean no limit; a text that is no number limits nobody either.
Quota quotaIn(std::string_view text)
{
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    long long bytes = 0;
    std::from_chars(text.data(), text.data() + text.size(), bytes);
    return bytes > 0 ? Quota(bytes) : std::nullopt;
}

// ---- Map files ----

std::string_view behindName(std::string_view line)
{
    return line.substr(std::min(line.size(), wholeName(line).size() + 1));
}

// A line with "#" is a comment. One without a name belongs to nobody; "check" reports it.
bool isEntry(std::string_view line)
{
    return !wholeName(line).empty() && line.front() != '#';
}

// Passes on the lines of the map that contain the text, until take has what it wants.
enum Next { GoOn, Enough };
using TakeLine = std::function<Next(std::string_view line)>;
void readMap(const char* map, const std::string& text, const TakeLine& take)
{
    LineReader reader(map, text);
    std::string_view line;
    while (reader.nextLine(line))
        if (isEntry(line) && take(line) == Enough)
            return;
    if (reader.error() != 0 && reader.error() != ENOENT)
        stop(Status::NotWritten, std::string(map) + " cannot be read: " + reader.reason());
    requireNoEmptyLink(map);
}

// An address has one line in a map. When there are several, the first counts.
Next afterLineOf(const Wanted& wanted)
{
    return wanted.address.empty() ? GoOn : Enough;
}

std::string_view fieldOf(std::string_view line, int number)
{
    for (; number > 0; --number)
        line = contains(line, ":") ? textAfter(line, ':') : std::string_view();
    return textBefore(line, ':');
}

void readAccounts(Hosting& hosting, const Wanted& wanted, const std::string& text)
{
    constexpr int HashField = 1;
    constexpr int FlagField = 8;
    readMap(VPASSWDFILE, text, [&](std::string_view line) {
        if (!isWanted(wanted, accountName(line)))
            return GoOn;
        hosting.mailboxes[std::string(accountName(line))].isInShadow = false;
        return afterLineOf(wanted);
    });
    readMap(VSHADOWFILE, wanted.anyLetters ? "" : text, [&](std::string_view line) {
        if (!isWanted(wanted, accountName(line)) &&
            !(wanted.anyLetters && equalIgnoringCase(accountName(line), wanted.address)))
            return GoOn;
        const auto [place, isNew] = hosting.mailboxes.try_emplace(std::string(accountName(line)));
        Mailbox& mailbox = place->second;
        mailbox.isInPasswd = !isNew;
        mailbox.isInShadow = true;
        mailbox.hash = fieldOf(line, HashField);
        mailbox.type = fieldOf(line, FlagField) == "1" ? Mailbox::Admin : Mailbox::User;
        return afterLineOf(wanted);
    });
}

std::set<std::string> readDomainList(const std::string& domain)
{
    std::set<std::string> domains;
    readMap(VDOMAINFILE, domain, [&](std::string_view line) {
        if (!domain.empty() && wholeName(line) != domain)
            return GoOn;
        domains.emplace(wholeName(line));
        return domain.empty() ? GoOn : Enough;
    });
    return domains;
}

void readQuotas(Hosting& hosting, const Wanted& wanted, const std::string& text)
{
    readMap(VQUOTAFILE, text, [&](std::string_view line) {
        const std::string name(wholeName(line));
        if (!isWanted(wanted, name))
            return GoOn;
        hosting.quotas.insert(name);
        const auto mailbox = hosting.mailboxes.find(name);
        if (mailbox != hosting.mailboxes.end())
            mailbox->second.quota = quotaIn(behindName(line));
        return afterLineOf(wanted);
    });
}

void readAliases(Hosting& hosting, const Wanted& wanted, const std::string& text)
{
    readMap(VALIASFILE, text, [&](std::string_view line) {
        const bool isOfName = isWanted(wanted, wholeName(line));
        if (!isOfName && !mentionsWanted(wanted, line))
            return GoOn;
        Addresses targets = wordsOf(behindName(line));
        if (!isOfName && !leadsToWanted(wanted, targets))
            return GoOn;
        hosting.aliases.try_emplace(std::string(wholeName(line)), std::move(targets));
        return wanted.forwarders ? GoOn : afterLineOf(wanted);
    });
}

// The inbox, below the spool, is named after the address.
void readCatchAlls(Hosting& hosting, const std::string& key)
{
    readMap(VMAPSFILE, key, [&](std::string_view line) {
        const std::string_view name = wholeName(line);
        if (name.substr(0, 1) != "@" || (!key.empty() && name != key))
            return GoOn;
        const std::string_view inbox = behindName(line);
        std::string target(inbox.substr(inbox.rfind('/') + 1));
        if (!contains(target, "@"))
            target.append(name);
        hosting.catchAlls.try_emplace(std::string(name.substr(1)), std::move(target));
        return key.empty() ? GoOn : Enough;
    });
}

Hosting readMaps(const Wanted& wanted, unsigned parts)
{
    Hosting hosting;
    const std::string ofDomain = wanted.domain.empty() ? "" : "@" + wanted.domain;
    const std::string text = wanted.address.empty() ? ofDomain : wanted.address;

    if ((parts & Domains) != 0)
        hosting.domains = readDomainList(wanted.domain);
    if ((parts & Accounts) != 0)
        readAccounts(hosting, wanted, text);
    if ((parts & Quotas) != 0)
        readQuotas(hosting, wanted, text);
    if ((parts & Aliases) != 0)
        // For targets all lines are read: a search would miss one in capital letters.
        readAliases(hosting, wanted, wanted.forwarders ? "" : text);
    if ((parts & CatchAlls) != 0)
        readCatchAlls(hosting, ofDomain);
    return hosting;
}

// ---- Database ----

std::unique_ptr<SqlConnection>& openConnection()
{
    static std::unique_ptr<SqlConnection> connection;
    return connection;
}

// "where ...", for a column that holds addresses.
std::string conditionOn(const SqlConnection& database, const std::string& column,
                        const Wanted& wanted)
{
    if (!wanted.address.empty())
        return column + " = " + database.literal(wanted.address);
    if (wanted.domain.empty())
        return "true";
    return "substring_index(" + column + ", '@', -1) = " + database.literal(wanted.domain);
}

std::set<std::string> readDomainTable(SqlConnection& database, const std::string& domain)
{
    std::set<std::string> domains;
    const std::string condition = domain.empty() ? "" : " where name = " + database.literal(domain);
    for (const Row& row : database.rows("select name from virtual_domains" + condition))
        domains.insert(lowerCase(row[0]));
    return domains;
}

void readUsers(Hosting& hosting, SqlConnection& database, const Wanted& wanted)
{
    for (const Row& row : database.rows("select email, password, quota from virtual_users where " +
                                        conditionOn(database, "email", wanted))) {
        Mailbox& mailbox = hosting.mailboxes[lowerCase(row[0])];
        mailbox.hash = row[1];
        mailbox.quota = quotaIn(row[2]);
        if (mailbox.quota)
            hosting.quotas.insert(lowerCase(row[0]));
    }
}

void readAliasTable(Hosting& hosting, SqlConnection& database, const Wanted& wanted)
{
    std::string condition = conditionOn(database, "source", wanted);
    if (!wanted.address.empty())
        condition += " or source = " + database.literal("@" + wanted.domain);
    const std::string select = "select source, destination from virtual_aliases where ";
    std::string query = select + condition;
    if (wanted.forwarders) // asked apart: with an "or", the optimizer reads all rows
        query += " union all " + select + "destination = " + database.literal(wanted.address) +
                 " and not (" + condition + ")";
    for (const Row& row : database.rows(query)) {
        const std::string source = lowerCase(row[0]);
        if (source.substr(0, 1) == "@")
            hosting.catchAlls.try_emplace(source.substr(1), lowerCase(row[1]));
        else if (equalIgnoringCase(source, row[1]))
            hosting.selfRows.insert(source);
        else
            hosting.aliases[source].push_back(row[1]);
    }
}

Hosting readTables(SqlConnection& database, const Wanted& wanted, unsigned parts)
{
    Hosting hosting;
    if ((parts & Domains) != 0)
        hosting.domains = readDomainTable(database, wanted.domain);
    if ((parts & (Accounts | Quotas)) != 0)
        readUsers(hosting, database, wanted);
    if ((parts & (Aliases | CatchAlls)) != 0)
        readAliasTable(hosting, database, wanted);
    return hosting;
}

} // namespace

const Mailbox* Hosting::mailbox(const std::string& address) const
{
    const auto found = mailboxes.find(address);
    return found == mailboxes.end() ? nullptr : &found->second;
}

Addresses Hosting::targetsOf(const std::string& address) const
{
    const auto found = aliases.find(address);
    return found == aliases.end() ? Addresses() : found->second;
}

bool Hosting::hasEntry(const std::string& address) const
{
    return aliases.count(address) > 0 || selfRows.count(address) > 0;
}

bool Hosting::isList(const std::string& address) const
{
    return mailbox(address) == nullptr && targetsOf(address).size() > 1;
}

std::string Hosting::catchAllOf(const std::string& domain) const
{
    const auto found = catchAlls.find(domain);
    return found == catchAlls.end() ? std::string() : found->second;
}

Wanted everything()
{
    return {};
}

Wanted domainAlone(const std::string& domain)
{
    return {domain};
}

Wanted addressAlone(const Address& address)
{
    return {address.domain, address.text};
}

void requireNoEmptyLink(const std::string& map)
{
    if (leadsNowhere(map))
        stop(Status::NotWritten,
             map + " cannot be read: it is a link, and nothing is where it leads");
}

Wanted inAnyLetters(const Address& address)
{
    Wanted wanted = addressAlone(address);
    wanted.anyLetters = true;
    return wanted;
}

Hosting readHosting(const Settings& settings, const Wanted& wanted, unsigned parts)
{
    if (!settings.usesSql)
        return readMaps(wanted, parts);
    return asked(settings,
                 [&](SqlConnection& database) { return readTables(database, wanted, parts); });
}

SqlConnection& connectionToAsk(const SqlSettings& settings)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds Moment(1);
    static Clock::time_point lastUse;
    std::unique_ptr<SqlConnection>& connection = openConnection();
    if (connection == nullptr || Clock::now() - lastUse > Moment)
        connection = std::make_unique<SqlConnection>(settings);
    lastUse = Clock::now();
    return *connection;
}

void dropConnectionToAsk()
{
    openConnection().reset();
}

void reachDatabase(const Settings& settings)
{
    asked(settings, [](SqlConnection& database) {
        return database.rows("select name from virtual_domains limit 1");
    });
}

Addresses wordsOf(std::string_view text)
{
    Addresses words;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find_first_of(", \t", begin), text.size());
        if (end > begin)
            words.emplace_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}
