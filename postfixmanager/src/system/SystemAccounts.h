#ifndef QV_SYSTEMACCOUNTS_H
#define QV_SYSTEMACCOUNTS_H

#include <optional>

#include <sys/types.h>

// The account that mail belongs to, and the account whose primary group the mail servers have.
inline constexpr const char* MailOwner = "qvadmin";
inline constexpr const char* MailReaders = "mail";

// A user id and a group id, looked up in the system's accounts at the moment of asking.
struct Ownership {
    uid_t user;
    gid_t group;
};

// The user id of one account and the primary group id of another (not of the group of that name).
// Nothing when either account is unknown. Asks getpwnam, which hosts may watch, and which
// overwrites the record that it returned to the host before.
std::optional<Ownership> ownershipOf(const char* user, const char* groupAccount);

// The same, but leaves that record alone, because the host's own record is still to be written.
std::optional<Ownership> ownershipApart(const char* user, const char* groupAccount);

#endif
