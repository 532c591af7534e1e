#include "system/SystemAccounts.h"

#include <cerrno>
#include <vector>

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

bool isAccount(const char* name)
{
    passwd record{};
    passwd* found = nullptr;
    std::vector<char> buffer(1024);
    while (getpwnam_r(name, &record, buffer.data(), buffer.size(), &found) == ERANGE)
        buffer.resize(2 * buffer.size());
    return found != nullptr;
}

bool giveTo(const std::string& path, const char* user, const char* groupAccount)
{
    const std::optional<Ownership> owner = ownershipOf(user, groupAccount);
    return owner && chown(path.c_str(), owner->user, owner->group) == 0;
}
