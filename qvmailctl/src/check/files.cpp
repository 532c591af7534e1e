// System accounts, directories, and what the lock of all changes needs
#include "system/LargeFilesAndDates.h"

#include "Areas.h"

#include "Paths.h"
#include "system/Refusal.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

namespace
{

constexpr mode_t WritableByOthers = 022;
constexpr mode_t MapDirectoryMode = 0755;
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

// One that root alone may write to, and everybody may pass.
void checkDirectory(const std::string& path, const char* harm, Findings& findings)
{
    const std::optional<PathFacts> facts = factsBehind(path);
    if (!facts)
        return; // told elsewhere
    if (facts->type != PathType::Directory) {
        findings.push_back({"not-a-directory", path, "", "is no directory",
                            "move it away; \"qvmailctl init\" makes the directory"});
        return;
    }
    const bool isPassed = (facts->mode & 05U) == 05;
    if (facts->user == 0 && (facts->mode & WritableByOthers) == 0 && isPassed)
        return;
    findings.push_back({"directory-rights", path, "",
                        "has the owner " + std::to_string(facts->user) + " and the mode " +
                            octal(facts->mode) + ", " + harm,
                        "it belongs to root, with mode 0755", Mend::Beside,
                        [path, group = facts->group](Mending&) {
                            giveRights(path, {0, group}, MapDirectoryMode);
                        }});
}

} // namespace

void checkAccounts(const MailServers& servers, Findings& findings)
{
    for (const char* const name : {"mail", "qvadmin"})
        if (getpwnam(name) == nullptr || getgrnam(name) == nullptr)
            findings.push_back({"account-missing", "/etc/passwd", name,
                                "the system account or group " + std::string(name) +
                                    " is missing, and all mail belongs to it",
                                "\"qvmailctl init\" adds it"});
    const passwd* const owner = getpwnam("qvadmin");
    if (owner == nullptr)
        return;
    const auto lowest =
        static_cast<uid_t>(std::atoi(servers.dovecotSetting("first_valid_uid").c_str()));
    if (owner->pw_uid == 0 || owner->pw_uid < lowest)
        findings.push_back(
            {"account-id", "/etc/passwd", "qvadmin",
             "qvadmin has the user id " + std::to_string(owner->pw_uid) +
                 (owner->pw_uid == 0 ? ", which is root's: mail would be delivered as root"
                                     : ", below first_valid_uid of Dovecot, which refuses it"),
             owner->pw_uid == 0 ? "give it a user id of its own"
                                : "write \"first_valid_uid = 100\" into "
                                  "/etc/dovecot/local.conf"});
}

void checkDirectories(Findings& findings)
{
    checkDirectory(VMAPDIR, "so that others can replace maps or the mail servers cannot read them",
                   findings);
    checkDirectory(VSPOOLDIR,
                   "so that others can plant links where root acts, or mail cannot be reached",
                   findings);
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
