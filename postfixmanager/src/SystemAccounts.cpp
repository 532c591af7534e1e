#include "SystemAccounts.h"

#include <pwd.h>
#include <unistd.h>

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

void giveTo(const std::string& path, const char* user, const char* groupAccount)
{
    const std::optional<Ownership> owner = ownershipOf(user, groupAccount);
    if (owner) {
        [[maybe_unused]] const int ignored = chown(path.c_str(), owner->user, owner->group);
    }
}
