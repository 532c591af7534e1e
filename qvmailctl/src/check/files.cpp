// System accounts, directories, and what the lock of all changes needs
#include "system/LargeFilesAndDates.h"

#include "Areas.h"

#include "Paths.h"
#include "system/Refusal.h"
#include "system/SystemAccounts.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

namespace
{

constexpr mode_t WritableByOthers = 022;
constexpr mode_t OpenToOthers = 07;
constexpr mode_t MapDirectoryMode = 0755;
constexpr mode_t SpoolMode = 0710;
constexpr mode_t LockMode = 0700;

bool isRootsAlone(const PathFacts& facts)
{
    return facts.user == 0 && (facts.mode & 077U) == 0;
}

void makeDirectory(const std::string& path, mode_t mode)
{
    if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST)
        refuse(path + " cannot be made: " + strerror(errno));
}

// Nothing when it is missing, or, with a finding, when it is no directory.
std::optional<PathFacts> factsOfDirectory(const std::string& path, Findings& findings)
{
    const std::optional<PathFacts> facts = factsBehind(path);
    if (!facts || facts->type == PathType::Directory)
        return facts;
    findings.push_back({"not-a-directory", path, "", "is no directory",
                        "move it away; \"qvmailctl init\" makes the directory"});
    return std::nullopt;
}

std::string rightsOf(const PathFacts& facts)
{
    return "has the owner " + std::to_string(facts.user) + ":" + std::to_string(facts.group) +
           " and the mode " + octal(facts.mode);
}

bool isSafe(const PathFacts& facts)
{
    return facts.user == 0 && (facts.mode & WritableByOthers) == 0;
}

// Only root may write to the directory of the maps, and everybody may pass it.
void checkMapDirectory(Findings& findings)
{
    const std::optional<PathFacts> facts = factsOfDirectory(VMAPDIR, findings);
    if (!facts || (isSafe(*facts) && (facts->mode & 05U) == 05))
        return;
    findings.push_back(
        {"directory-rights", VMAPDIR, "",
         rightsOf(*facts) +
             ", so that others can replace maps or the mail servers cannot read them",
         "it belongs to root, with mode 0755", Mend::Beside, [group = facts->group](Mending&) {
             giveRights(VMAPDIR, {0, group}, MapDirectoryMode);
         }});
}

// The directories of inboxes below the spool are writable for all: whoever could pass the spool
// could rename and plant inboxes. The mail servers pass it by their group.
void checkSpoolDirectory(const MailServers& servers, Findings& findings)
{
    const group* const mail = getgrnam(MailReaders);
    const std::optional<PathFacts> facts = factsOfDirectory(VSPOOLDIR, findings);
    if (!facts || mail == nullptr)
        return; // reported by another check
    const bool isOpen = (facts->mode & OpenToOthers) != 0;
    const bool isPassed = facts->group == mail->gr_gid && (facts->mode & 010U) != 0;
    if (isSafe(*facts) && !isOpen && isPassed)
        return;
    const gid_t group = mail->gr_gid;
    Finding finding = {isOpen && isSafe(*facts) ? "spool-open" : "directory-rights", VSPOOLDIR, "",
                       rightsOf(*facts), ""};
    finding.fault += isOpen ? ", so that every local user can rename and plant inboxes"
                            : ", so that the mail servers cannot reach mail, or others can plant "
                              "links where root acts";
    if (servers.postfixPassesSpool() && servers.dovecotPassesSpool()) {
        finding.wayOut = "it belongs to root and the group mail, with mode 0710";
        finding.how = Mend::Beside;
        finding.mend = [group](Mending&) { giveRights(VSPOOLDIR, {0, group}, SpoolMode); };
    } else {
        finding.wayOut = "have the mail servers work with the group mail (docs/servers.md), then "
                         "\"qvmailctl check --repair\" closes it";
    }
    findings.push_back(finding);
}

} // namespace

void checkAccounts(const MailServers& servers, Findings& findings)
{
    for (const char* const name : {MailReaders, MailOwner})
        if (getpwnam(name) == nullptr || getgrnam(name) == nullptr)
            findings.push_back({"account-missing", "/etc/passwd", name,
                                "the system account or group " + std::string(name) +
                                    " is missing, and all mail belongs to it",
                                "\"qvmailctl init\" adds it"});
    const passwd* const owner = getpwnam(MailOwner);
    if (owner == nullptr)
        return;
    const auto lowest =
        static_cast<uid_t>(std::atoi(servers.dovecotSetting("first_valid_uid").c_str()));
    if (owner->pw_uid == 0 || owner->pw_uid < lowest)
        findings.push_back(
            {"account-id", "/etc/passwd", MailOwner,
             "qvadmin has the user id " + std::to_string(owner->pw_uid) +
                 (owner->pw_uid == 0 ? ", which is root's: mail would be delivered as root"
                                     : ", below first_valid_uid of Dovecot, which refuses it"),
             owner->pw_uid == 0 ? "give it a user id of its own"
                                : "write \"first_valid_uid = 100\" into "
                                  "/etc/dovecot/local.conf"});
}

void checkDirectories(const MailServers& servers, Findings& findings)
{
    checkMapDirectory(findings);
    checkSpoolDirectory(servers, findings);
}

void checkLock(Findings& findings)
{
    if (!isThere(VMAPDIR))
        findings.push_back({"directory-missing", VMAPDIR, "", "is missing: it holds the maps",
                            "it is made, empty", Mend::First,
                            [](Mending&) { makeDirectory(VMAPDIR, MapDirectoryMode); }});
    const std::optional<PathFacts> facts = factsOf(VSTAGEDIR);
    if (!facts)
        return;
    if (facts->type != PathType::Directory) {
        findings.push_back({"lock-unfit", VSTAGEDIR, "", "is no directory, so no change can begin",
                            "remove it; the next change makes it"});
        return;
    }
    if (!isRootsAlone(*facts))
        findings.push_back({"lock-unfit", VSTAGEDIR, "",
                            "is not root's alone, so no change can begin",
                            "it belongs to root, with mode 0700", Mend::First, [](Mending&) {
                                giveRights(VSTAGEDIR, {0, 0}, LockMode);
                            }});
    if (isThere(VJOURNALFILE)) {
        findings.push_back({"change-interrupted", VJOURNALFILE, "",
                            "a change was interrupted while it was carried out; the next change "
                            "completes it before it begins",
                            "it is completed, or taken back where the database did not take it",
                            Mend::First, [](Mending&) {}});
        return;
    }
    bool isLeft = isThere(VLISTSTAGEDIR);
    for (const std::string& name : namesIn(VSTAGEDIR))
        isLeft = isLeft || name != "unremoved";
    if (isLeft)
        findings.push_back({"copies-left", VSTAGEDIR, "",
                            "holds the copies of a change that was interrupted before anything was "
                            "changed; the next change removes them",
                            "they are removed", Mend::First, [](Mending&) {}});
}
