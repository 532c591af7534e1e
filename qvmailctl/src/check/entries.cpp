// The entries of the map files: line by line, and each map against the others
#include "system/LargeFilesAndDates.h"

#include "Areas.h"

#include "Accounts.h"
#include "Checks.h"
#include "Output.h"
#include "Paths.h"
#include "Results.h"
#include "maps/LineFaults.h"
#include "maps/LineReader.h"
#include "maps/MapLines.h"
#include "maps/MapVariants.h"
#include "maps/QuotaFields.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <functional>
#include <unordered_map>
#include <unordered_set>

namespace
{

// The first line of a name.
struct Entry {
    std::size_t number; // its line number in an editor
    std::size_t place;  // among the lines that are not empty, from 0
    std::size_t hash;   // of the line
};

// What an account's line in vpasswd says of its quota.
struct QuotaFields {
    std::optional<std::string> quota;
    bool mayChange;
};

// A line that its map's reader does not understand.
struct UselessLine {
    Entry entry;
    std::string text;
};

struct Scan {
    std::unordered_map<std::string, Entry> entries;
    std::vector<UselessLine> useless;
    std::unordered_map<std::string, QuotaFields> quotas; // of vpasswd
    std::unordered_set<std::string> malformed;           // names of malformed lines
};
using Scans = std::map<std::string, Scan>; // by map

// ---- Line by line ----

std::string lineNumber(const Entry& entry)
{
    return "line " + std::to_string(entry.number);
}

std::string_view withoutTail(std::string_view line)
{
    const std::size_t end = line.find_last_not_of(" \t\r");
    return line.substr(0, end == std::string_view::npos ? 0 : end + 1);
}

// False for a malformed line, which is not looked at further.
bool checkForm(const std::string& map, const Entry& entry, std::string_view line,
               std::vector<UselessLine>& useless, Findings& findings)
{
    const char* const fault = faultOfLine(map, line);
    if (fault == nullptr)
        return true;
    const std::string_view kept = withoutTail(line);
    if (kept.empty() || faultOfLine(map, kept) == nullptr) {
        const auto cut = [](std::string_view text) {
            const std::string_view rest = withoutTail(text);
            return rest.empty() ? std::nullopt : std::optional(std::string(rest));
        };
        findings.push_back({"line-blanks", map, std::string(wholeName(kept)),
                            lineNumber(entry) + " ends in blanks or a carriage return, which its "
                                                "readers take for a part of it",
                            "they are cut off", Mend::InTransaction,
                            [=](Mending& mending) { mending.edit(map, entry.place, cut); }});
        return false;
    }
    useless.push_back({entry, std::string(line)});
    return false;
}

// A catch-all's name is "@" and its domain.
const char* faultOfName(const std::string& map, const std::string& name)
{
    if (map == VDOMAINFILE)
        return faultOfDomain(name);
    const bool mayBeDomain = map == VMAPSFILE || map == VALIASFILE;
    return mayBeDomain && name.front() == '@' ? faultOfDomain(name.substr(1))
                                              : faultOfAddress(name);
}

void checkName(const std::string& map, const Entry& entry, const std::string& name,
               Findings& findings)
{
    const char* const fault = faultOfName(map, lowerCase(name));
    if (fault != nullptr)
        findings.push_back({"name-unfit", map, name,
                            lineNumber(entry) + " has the name " + inQuotes(name) + ": " + fault,
                            "correct it, or remove the line"});
    else if (name != lowerCase(name))
        findings.push_back({"name-in-capitals", map, name,
                            shown(name) + " has capital letters, and Dovecot folds what users "
                                          "give to lower case: nobody can log in as that",
                            "write it in lower case, in each map"});
}

void checkSecond(const std::string& map, const Entry& first, const Entry& second,
                 const std::string& name, Findings& findings)
{
    if (first.hash == second.hash)
        findings.push_back({"line-twice", map, name,
                            lineNumber(second) + " is the same as " + lineNumber(first),
                            "it is removed", Mend::InTransaction,
                            [map, second](Mending& mending) { mending.drop(map, second.place); }});
    else
        findings.push_back({"name-twice", map, name,
                            lineNumber(second) + " is a second entry of " + shown(name) +
                                ", other than " + lineNumber(first) + ", which counts",
                            "remove the wrong one"});
}

bool hasLastLineEnd(const std::string& map)
{
    std::ifstream file(map, std::ios::binary);
    return file.seekg(-1, std::ios::end).get() == '\n' || !file; // an empty file lacks none
}

Scan scanMap(const std::string& map, Findings& findings)
{
    Scan scan;
    LineReader reader(map);
    std::string_view line;
    for (Entry entry = {1, 0, 0}; reader.nextLine(line); ++entry.number) {
        if (line.empty())
            continue;
        if (line.front() == '#') { // a comment to postmap, and to Dovecot
            ++entry.place;
            continue;
        }
        entry.hash = std::hash<std::string_view>()(line);
        const std::string name(wholeName(line));
        if (!checkForm(map, entry, line, scan.useless, findings)) {
            scan.malformed.insert(name);
        } else {
            const auto [first, isNew] = scan.entries.try_emplace(name, entry);
            if (isNew)
                checkName(map, entry, name, findings);
            else
                checkSecond(map, first->second, entry, name, findings);
            if (map == VPASSWDFILE)
                scan.quotas[name] = {quotaInFields(line), mayHaveQuotaFields(line)};
        }
        ++entry.place;
    }
    if (!hasLastLineEnd(map))
        findings.push_back({"line-end-missing", map, "",
                            "the last line has no line end: the control panel's next entry would "
                            "run into it",
                            "it is ended", Mend::InTransaction,
                            [map](Mending& mending) { mending.rewrite(map); }});
    return scan;
}

// Those of these lines that are of use in another map: a plain deletion of a domain whose work file
// could not become a map has written its lines into the next one.
std::unordered_set<std::string> linesElsewhere(const Scans& scans)
{
    std::unordered_set<std::string> useless;
    for (const auto& [map, scan] : scans)
        for (const UselessLine& line : scan.useless)
            useless.insert(line.text);
    std::unordered_set<std::string> found;
    for (const std::string map : Maps) {
        LineReader reader(useless.empty() ? "/dev/null" : map);
        std::string_view line;
        while (reader.nextLine(line))
            if (useless.count(std::string(line)) > 0 && faultOfLine(map, line) == nullptr)
                found.emplace(line);
    }
    return found;
}

void checkUselessLines(const Scans& scans, Findings& findings)
{
    const std::unordered_set<std::string> elsewhere = linesElsewhere(scans);
    for (const std::string map : Maps)
        for (const auto& [entry, line] : scans.at(map).useless) {
            const std::string_view kept = withoutTail(line);
            const std::string copies = copiesOf(map);
            Finding finding = {
                "line-malformed", map, "",
                lineNumber(entry) + ", " + inQuotes(kept) +
                    ", is of no use: " + faultOfLine(map, line),
                "correct it, or remove it" +
                    (copies.empty() ? "" : "; former states of the map are " + copies)};
            const bool isElsewhere = elsewhere.count(line) > 0;
            if (isElsewhere || isNumberOfType(map, kept)) {
                finding.wayOut = isElsewhere
                                     ? "it is removed: it is another map's, and stands there"
                                     : "it is removed: a change of a user's type has left it";
                finding.how = Mend::InTransaction;
                finding.mend = [map, place = entry.place](Mending& mending) {
                    mending.drop(map, place);
                };
            }
            findings.push_back(finding);
        }
}

// A map that is empty while others hold accounts was lost. It is not made anew from those: the next
// commit would replace the copy that still has all of it.
bool isLost(const std::string& map, const Scans& scans, Findings& findings)
{
    if (map == VALIASFILE || map == VQUOTAFILE || !scans.at(map).entries.empty())
        return false;
    std::size_t most = 0;
    for (const char* const other : {VPASSWDFILE, VSHADOWFILE, VMAPSFILE})
        most = std::max(most, scans.at(other).entries.size());
    const std::string copies = copiesOf(map);
    if (most == 0 || copies.empty())
        return false;
    findings.push_back({"map-emptied", map, "",
                        "is empty, while another map has " + std::to_string(most) + " entries",
                        "bring it back from " + copies});
    return true;
}

// ---- Each account in all of its maps ----

struct AccountEntries {
    const Settings& settings;
    const Hosting& hosting;
    const Scans& scans;
    const std::unordered_set<std::string>& formerPasswords; // the names in vshadow's copy
    Findings& findings;

    // A malformed line counts too: it is reported already, and another cannot be added beside it.
    bool has(const char* map, const std::string& name) const
    {
        const Scan& scan = scans.at(map);
        return scan.entries.count(name) > 0 || scan.malformed.count(name) > 0;
    }
    std::optional<std::size_t> placeOf(const char* map, const std::string& name) const
    {
        const auto entry = scans.at(map).entries.find(name);
        if (entry == scans.at(map).entries.end())
            return std::nullopt;
        return entry->second.place;
    }
};

Address addressOf(const std::string& text)
{
    return {text.substr(0, text.find('@')), std::string(domainOf(text)), text};
}

// A mailbox as an interrupted creation leaves it.
void isHalfMade(const AccountEntries& accounts, const std::string& name)
{
    const auto inPasswd = accounts.placeOf(VPASSWDFILE, name);
    const auto inQuotas = accounts.placeOf(VQUOTAFILE, name);
    if (!inPasswd)
        return; // its line is malformed, which is reported already
    accounts.findings.push_back({"mailbox-half-made", VPASSWDFILE, name,
                                 name + " is half made: it has no password, no mail and no line "
                                        "in " VMAPSFILE,
                                 "its line is removed, so that it can be made again",
                                 Mend::InTransaction, [inPasswd, inQuotas](Mending& mending) {
                                     mending.drop(VPASSWDFILE, *inPasswd);
                                     if (inQuotas)
                                         mending.drop(VQUOTAFILE, *inQuotas);
                                 }});
}

void lacksPassword(const AccountEntries& accounts, const Address& address)
{
    const std::string fault = address.text + " has no line, so nobody can log in as it";
    if (accounts.formerPasswords.count(address.text) > 0)
        accounts.findings.push_back({"password-missing", VSHADOWFILE, address.text, fault,
                                     "bring its line back from " VSHADOWFILE ".qvbackup"});
    else
        accounts.findings.push_back(
            {"password-missing", VSHADOWFILE, address.text, fault,
             "it has a password that nobody knows; give it one with \"qvmailctl mailbox passwd " +
                 address.text + "\"",
             Mend::InTransaction, [address](Mending& mending) {
                 mending.call(VSHADOWFILE,
                              [address](Session& session) { writePasswordLine(session, address); });
             }});
}

void lacksUserLine(const AccountEntries& accounts, const Address& address, const Mailbox& mailbox)
{
    const Quota quota = accounts.settings.dovecotLDA ? mailbox.quota : std::nullopt;
    accounts.findings.push_back(
        {"user-line-missing", VPASSWDFILE, address.text,
         address.text + " has no line, so Dovecot does not know where its mail is",
         "its line is made from that in " VSHADOWFILE, Mend::InTransaction,
         [address, quota, type = mailbox.type](Mending& mending) {
             mending.call(VPASSWDFILE,
                          [=](Session& session) { writeUserLine(session, address, quota, type); });
         }});
}

void lacksRoute(const AccountEntries& accounts, const Address& address, const Mailbox& mailbox)
{
    const bool mayBeNew = !mailbox.quota && !hasFormerMail(address);
    accounts.findings.push_back(
        {"route-missing", VMAPSFILE, address.text,
         address.text + " has no line, so its mail is refused",
         std::string("its line is made") +
             (mayBeNew ? "; if its creation was interrupted, its quota is missing too: "
                         "\"qvmailctl quota set " +
                             address.text + " QUOTA\""
                       : ""),
         Mend::InTransaction, [address](Mending& mending) {
             mending.call(VMAPSFILE, [address](Session& session) {
                 conclude(session,
                          session.library.Postfix_VMaps(address.user, address.domain, "AddUser"),
                          {PostfixResult::Done},
                          "the line of " + address.text + " in " VMAPSFILE " could not be made");
             });
         }});
}

Quota limitIn(const std::string& text)
{
    long long bytes = 0;
    std::from_chars(text.data(), text.data() + text.size(), bytes);
    return bytes > 0 ? Quota(bytes) : std::nullopt;
}

// The panel reads the quota in vquota.txt, Dovecot the one in vpasswd.
void checkQuota(const AccountEntries& accounts, const Address& address, const Mailbox& mailbox)
{
    const auto& allFields = accounts.scans.at(VPASSWDFILE).quotas;
    const auto fields = allFields.find(address.text);
    const auto place = accounts.placeOf(VPASSWDFILE, address.text);
    if (fields == allFields.end() || !place)
        return;
    const std::string enforced = fields->second.quota.value_or("");
    const bool isNegative = !enforced.empty() && enforced.front() == '-';
    if (limitIn(enforced) == mailbox.quota && !isNegative)
        return;

    Finding finding = {"quota-differs", VPASSWDFILE, address.text,
                       address.text + " has the quota " + textOf(mailbox.quota) +
                           " in " VQUOTAFILE ", and Dovecot's is " +
                           (enforced.empty() ? "unlimited" : shown(enforced)),
                       ""};
    if (isNegative)
        finding.fault += ", which it refuses: no login, no mail";
    const bool isKept = accounts.hosting.quotas.count(address.text) > 0;
    finding.how = Mend::InTransaction;
    if (!isKept && limitIn(enforced)) {
        finding.wayOut = VQUOTAFILE " has Dovecot's";
        finding.mend = [address, enforced](Mending& mending) {
            mending.call(VQUOTAFILE, [address, enforced](Session& session) {
                conclude(session,
                         session.library.Postfix_VQuota(address.text, enforced, "AddQuota"),
                         {PostfixResult::Done}, "its quota could not be added");
            });
        };
    } else if (fields->second.mayChange) {
        finding.wayOut = "Dovecot's is that of " VQUOTAFILE;
        finding.mend = [place, quota = mailbox.quota](Mending& mending) {
            mending.edit(VPASSWDFILE, *place, [quota](std::string_view line) {
                return quota ? withQuotaFields(line, std::to_string(*quota))
                             : withoutQuotaFields(line);
            });
        };
    } else {
        finding.how = Mend::ByHand;
        finding.wayOut = "a field of its line is empty; fill it in";
    }
    accounts.findings.push_back(finding);
}

void checkAccount(const AccountEntries& accounts, const Address& address, const Mailbox& mailbox)
{
    const bool hasRoute = accounts.has(VMAPSFILE, address.text);
    const bool hasPassword = mailbox.isInShadow || accounts.has(VSHADOWFILE, address.text);
    if (!hasPassword && !hasRoute && !hasFormerMail(address))
        return isHalfMade(accounts, address.text);
    if (!hasPassword)
        lacksPassword(accounts, address);
    if (!mailbox.isInPasswd && !accounts.has(VPASSWDFILE, address.text))
        lacksUserLine(accounts, address, mailbox);
    if (!hasRoute)
        lacksRoute(accounts, address, mailbox);
    if (accounts.settings.dovecotLDA)
        checkQuota(accounts, address, mailbox);
}

// The names in the copy of vshadow; read only when some account has no password now.
std::unordered_set<std::string> namesInCopy(const std::string& copy, const Hosting& hosting)
{
    std::unordered_set<std::string> names;
    const bool isAsked =
        std::any_of(hosting.mailboxes.begin(), hosting.mailboxes.end(),
                    [](const auto& mailbox) { return !mailbox.second.isInShadow; });
    LineReader reader(isAsked ? copy : "/dev/null");
    std::string_view line;
    while (reader.nextLine(line))
        names.emplace(accountName(line));
    return names;
}

// Whether a quota whose name has capitals is in force: Postfix looks names up in lower case, though
// the panel does not see such a quota. Where Dovecot has a quota of the mailbox, that one counts.
bool isQuotaInForce(const AccountEntries& accounts, const std::string& name)
{
    const std::string address = lowerCase(name);
    const Mailbox* const mailbox = accounts.hosting.mailbox(address);
    return mailbox != nullptr && !mailbox->quota &&
           std::none_of(
               accounts.findings.begin(), accounts.findings.end(), [&](const Finding& finding) {
                   return finding.kind == std::string("quota-differs") && finding.name == address;
               });
}

// Entries of names that are no mailbox.
void checkOrphans(const AccountEntries& accounts, const char* map, const char* kind,
                  const std::string& harm)
{
    std::map<std::string, std::size_t> orphans; // in order
    for (const auto& [name, entry] : accounts.scans.at(map).entries)
        if (name.front() != '@' && accounts.hosting.mailbox(name) == nullptr)
            orphans[name] = entry.place;
    for (const auto& [name, place] : orphans) {
        Finding finding = {kind, map, name, shown(name) + " " + harm, ""};
        if (faultOfAddress(name) == nullptr && hasFormerMail(addressOf(name))) {
            finding.wayOut = "its mail is still in the spool: bring its lines in " VPASSWDFILE
                             " and " VSHADOWFILE " back, or delete it with \"qvmailctl mailbox "
                             "delete " +
                             name + "\"";
        } else if (map == std::string(VQUOTAFILE) && isQuotaInForce(accounts, name)) {
            finding.wayOut = "it is the limit of " + lowerCase(name) +
                             " for Postfix: write the line in small letters, or set the limit with "
                             "\"qvmailctl quota set\" and remove the line";
        } else {
            finding.wayOut = "it is removed";
            finding.how = Mend::InTransaction;
            finding.mend = [map, place = place](Mending& mending) { mending.drop(map, place); };
        }
        accounts.findings.push_back(finding);
    }
}

} // namespace

void checkEntries(const Settings& settings, const Hosting& hosting, Findings& findings)
{
    Scans scans;
    for (const char* const map : Maps)
        scans[map] = scanMap(map, findings);
    checkUselessLines(scans, findings);
    bool isAnyLost = false;
    for (const char* const map : Maps)
        isAnyLost = isLost(map, scans, findings) || isAnyLost;
    if (isAnyLost)
        return;

    const std::unordered_set<std::string> formerPasswords =
        namesInCopy(VSHADOWFILE + std::string(Backup), hosting);
    const AccountEntries accounts = {settings, hosting, scans, formerPasswords, findings};
    for (const auto& [address, mailbox] : hosting.mailboxes)
        if (faultOfAddress(address) == nullptr && hosting.hosts(std::string(domainOf(address))))
            checkAccount(accounts, addressOf(address), mailbox);
    checkOrphans(accounts, VMAPSFILE, "route-without-mailbox",
                 "is no mailbox: its mail is taken, then returned");
    checkOrphans(accounts, VQUOTAFILE, "quota-without-mailbox",
                 "has a quota and is no mailbox: a new one cannot be made");
}
