// The directories of a domain below the spool, and what is in them for a mailbox.
#ifndef QV_DOMAINTREE_H
#define QV_DOMAINTREE_H

#include "MapFiles.h"

#include <string>

#include <sys/types.h>

inline constexpr const char* InboxDirectory = "/mail/inbox"; // below the domain's own
inline constexpr const char* HomeDirectory = "/mail/home";

struct TreeDirectory {
    const char* path; // below the domain's own
    mode_t madeWith;
    mode_t mode;
};

// The domain's own directory ends up without the set-group-id bit, all below it keep theirs:
// deliberate, hosts find the modes so.
inline constexpr TreeDirectory DomainTree[] = {
    {"", 02775, 0775},
    {"/mail", 02775, 02775},
    {InboxDirectory, 02777, 02777},
    {HomeDirectory, 02775, 02775},
    {"/mail/home/oldaccounts", 02775, 02775},
};

inline constexpr mode_t HomeMode = 02777; // of a mailbox's home

inline std::string homeOf(const std::string& domain, const std::string& address)
{
    return VSPOOLDIR "/" + domain + HomeDirectory + "/" + address;
}

// As the mailbox map names it: below the spool.
inline std::string inboxOf(const std::string& domain, const std::string& address)
{
    return domain + InboxDirectory + "/" + address;
}

#endif
