// Directories and mail below the spool, reached by descriptors that follow no link.
//
// The account "qvadmin" may write below a domain's directory, and root acts there: a link planted
// on the way must lead nowhere. Only a domain's own directory may be a link, to another disk say:
// the directory that holds it is root's.
//
// Paths are "/var/spool/vmail/DOMAIN" and below. All return 0, or the errno of what failed.
#ifndef QV_SPOOLTREE_H
#define QV_SPOOLTREE_H

#include "system/SystemAccounts.h"

#include <string>
#include <vector>

struct OwnedDirectory {
    std::string path;
    mode_t mode;
    Ownership owner;
};

// Makes the directories in this order, or takes those that are there, sets owner and mode and syncs
// them. failed is the one that could not be made; those before it are.
int makeInSpool(const std::vector<OwnedDirectory>& directories, std::string& failed);

// Takes a file or directory out of the way in one step, under a name of its own beside it that no
// mailbox or domain can have, and syncs that. What is not there is out of the way already.
int moveAsideInSpool(const std::string& path);
std::string asideOf(const std::string& path);

// Removes a file, or a directory with all below it. What is not there is removed already.
int removeFromSpool(const std::string& path);

// Whether anything is there: a link that leads nowhere too, and what cannot be looked at.
bool isInSpool(const std::string& path);

// Gives what tells the thing that is there from what is made in its place later; nothing when there
// is none.
int identityInSpool(const std::string& path, std::string& identity);

// Removes a directory that is empty; any other stays.
int removeEmptyFromSpool(const std::string& path);

#endif
