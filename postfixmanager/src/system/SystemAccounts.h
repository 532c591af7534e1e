#ifndef QV_SYSTEMACCOUNTS_H
#define QV_SYSTEMACCOUNTS_H

#include <optional>
#include <string>

#include <sys/types.h>

// A user id and a group id, looked up in the system's accounts at the moment of asking.
struct Ownership {
    uid_t user;
    gid_t group;
};

// The user id of one account and the primary group id of another (not the group of that name).
// Nothing when either account is unknown. Like getpwnam, it overwrites a record that an earlier
// getpwnam returned.
std::optional<Ownership> ownershipOf(const char* user, const char* groupAccount);

// Whether the account is known. Leaves such a record alone: a host's own may be one.
bool isAccount(const char* name);

// Gives a file or directory to them. False when that fails or an account is unknown; the owner is
// then as it was. Plain calls do not check.
bool giveTo(const std::string& path, const char* user, const char* groupAccount);

#endif
