#include "system/SystemAccounts.h"

#include <cerrno>
#include <vector>

#include <pwd.h>

namespace
{

// The user id and primary group id of one account.
std::optional<Ownership> idsOf(const char* name)
{
    passwd record{};
    passwd* found = nullptr;
    std::vector<char> buffer(1024);
    while (getpwnam_r(name, &record, buffer.data(), buffer.size(), &found) == ERANGE)
        buffer.resize(2 * buffer.size());
    if (found == nullptr)
        return std::nullopt;
    return Ownership{record.pw_uid, record.pw_gid};
}

} // namespace

std::optional<Ownership> ownershipOf(const char* user, const char* groupAccount)
{
    const std::optional<Ownership> ofUser = idsOf(user);
    const std::optional<Ownership> ofGroup = idsOf(groupAccount);
    if (!ofUser || !ofGroup)
        return std::nullopt;
    return Ownership{ofUser->user, ofGroup->group};
}
