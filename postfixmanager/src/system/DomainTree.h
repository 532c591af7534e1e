// The directories of a domain below the spool.
#ifndef QV_DOMAINTREE_H
#define QV_DOMAINTREE_H

#include <sys/types.h>

struct TreeDirectory {
    const char* path; // below the domain's own
    mode_t madeWith;
    mode_t mode;
};

// The domain's own directory ends without the set-group-id bit, on purpose; all below it keep
// theirs.
inline constexpr TreeDirectory DomainTree[] = {
    {"", 02775, 0775},
    {"/mail", 02775, 02775},
    {"/mail/inbox", 02777, 02777},
    {"/mail/home", 02775, 02775},
    {"/mail/home/oldaccounts", 02775, 02775},
};

inline constexpr mode_t HomeMode = 02777; // of a mailbox's home, in mail/home

#endif
