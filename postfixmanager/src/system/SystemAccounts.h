#ifndef QV_SYSTEMACCOUNTS_H
#define QV_SYSTEMACCOUNTS_H

#include <optional>

#include <sys/types.h>

// A user id and a group id, looked up in the system's accounts at the moment of asking.
struct Ownership {
    uid_t user;
    gid_t group;
};

// The user id of one account and the primary group id of another (not the group of that name).
// Nothing when either account is unknown. Leaves a record that getpwnam returned alone: a host's own
// may be one.
std::optional<Ownership> ownershipOf(const char* user, const char* groupAccount);

#endif
