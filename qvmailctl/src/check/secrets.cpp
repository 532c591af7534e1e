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

void closeToOthers(const std::string& path, const char* group, Findings& findings)
{
    const std::optional<PathFacts> facts = factsBehind(path);
    if (!facts || (facts->mode & (OpenToOthers | WritableByGroup)) == 0)
        return;
    // The server reads it as its own group; the settings of the panel and of qvmailctl are root's.
    const struct group* const reader = group == nullptr ? nullptr : getgrnam(group);
    const mode_t mode = reader == nullptr ? facts->mode & 0640U : 0640;
    const gid_t readers = reader == nullptr ? facts->group : reader->gr_gid;
    Finding finding = {"secret-readable", path, "",
                       "holds the password of the database and has the mode " + octal(facts->mode) +
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
    if (settings.usesSql && !settings.database.password.empty())
        closeToOthers(QVCONFFILE, nullptr, findings);
    for (const SqlFile& file : servers.sqlFiles)
        closeToOthers(file.path, file.group, findings);
}
