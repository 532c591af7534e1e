// Directories and mail below the spool, reached by descriptors that follow no link.
//
// The account "qvadmin" may write below a domain's directory, and root acts there: a link planted
// on the way must lead nowhere. Only a domain's own directory may be a link, to another disk say:
// the directory that holds it is root's.
//
// Paths are "/var/spool/vmail/DOMAIN" and below. What gives a number gives 0, or the errno of what
// failed.
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

// The same for one, as plain calls do it: made with a mode of its own, and owner and mode are given
// as far as that goes. What is there and is no directory, a link among others, stays as it is and is
// no failure. False when it cannot be made.
bool makePlainlyInSpool(const OwnedDirectory& directory, mode_t madeWith);

// Keeps the way to a path from being led elsewhere as long as it lives, for a command that is to be
// given the path. The directories on it, from the domain's own to the last but one, belong to root
// meanwhile and nobody else may write there: then no look beforehand can be outrun. What lies below
// the last one takes no harm, so mail is delivered as ever. A process that is killed meanwhile leaves
// them so; making the domain's tree again mends that.
class HeldWay
{
public:
    explicit HeldWay(const std::string& path);
    ~HeldWay();
    HeldWay(const HeldWay&) = delete;
    HeldWay& operator=(const HeldWay&) = delete;

    // Whether the path leads where it says, or nowhere.
    bool isSafe() const { return m_isSafe; }

private:
    struct HeldDirectory {
        int descriptor;
        uid_t user;
        mode_t mode;
    };
    bool hold(int descriptor);

    std::vector<HeldDirectory> m_held;
    bool m_isSafe = true;
};

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
