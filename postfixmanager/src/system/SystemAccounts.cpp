#include "system/SystemAccounts.h"

#include <cerrno>
#include <vector>

#include <pwd.h>

namespace
{

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
    const passwd* account = getpwnam(user);
    if (account == nullptr)
        return std::nullopt;
    const uid_t userId = account->pw_uid;

    account = getpwnam(groupAccount);
    if (account == nullptr)
        return std::nullopt;
    return Ownership{userId, account->pw_gid};
}

std::optional<Ownership> ownershipApart(const char* user, const char* groupAccount)
{
    const std::optional<Ownership> ofUser = idsOf(user);
    const std::optional<Ownership> ofGroup = idsOf(groupAccount);
    if (!ofUser || !ofGroup)
        return std::nullopt;
    return Ownership{ofUser->user, ofGroup->group};
}
