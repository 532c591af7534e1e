// Passwords that others can read
#include "system/LargeFilesAndDates.h"

#include "Areas.h"

#include "Paths.h"

#include <set>

#include <grp.h>

namespace
{

constexpr mode_t OpenToOthers = 07;
constexpr mode_t WritableByGroup = 020;

void closeToOthers(const std::string& path, const std::string& secret, const char* group,
                   Findings& findings)
{
    const std::optional<PathFacts> facts = factsBehind(path);
    if (!facts || facts->type != PathType::File ||
        (facts->mode & (OpenToOthers | WritableByGroup)) == 0)
        return;
    // A server reads the file by its group; /etc/Quorvel.conf is for root alone.
    const struct group* const reader = group == nullptr ? nullptr : getgrnam(group);
    const mode_t mode = reader == nullptr ? facts->mode & 0640U : 0640;
    const gid_t readers = reader == nullptr ? facts->group : reader->gr_gid;
    Finding finding = {"secret-readable", path, "",
                       "holds " + secret + " and has the mode " + octal(facts->mode) +
                           ", so that others can read or change it",
                       "it is root's, with mode " + octal(mode)};
    if (reader != nullptr)
        finding.wayOut += ", and the group " + std::string(group) + " can read it";
    finding.how = Mend::Beside;
    finding.mend = [path, readers, mode](Mending&) { giveRights(path, {0, readers}, mode); };
    findings.push_back(finding);
}

} // namespace

void checkSecrets(const Settings& settings, const MailServers& servers, Findings& findings)
{
    const std::string ofDatabase = "the password of the database";
    if (settings.usesSql && !settings.database.password.empty())
        closeToOthers(QVCONFFILE, ofDatabase, nullptr, findings);
    for (const SqlFile& file : servers.sqlFiles)
        closeToOthers(file.path, ofDatabase, file.group, findings);
    // vshadow: plain calls open it to all again.
    const bool isReadByRoot =
        !servers.hasDovecot || servers.dovecotSetting("service/auth/user") == "root";
    if (!settings.usesSql && isReadByRoot)
        for (const char* const path : {VSHADOWFILE, VSHADOWFILE ".qvbackup"})
            closeToOthers(path, "the hashes of all passwords", nullptr, findings);
}
