// Directories and mail below the spool, reached by descriptors that follow no link.
//
// The account "qvadmin" may write below a domain's directory, and root acts there: a link that is
// planted on the way must lead root nowhere. Only a domain's own directory may be a link, to
// another disk for example: the directory that holds it belongs to root.
//
// Paths are "/var/spool/vmail/DOMAIN" and below. A function that returns int returns 0, or the
// errno of what failed.
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
// them. failed names the one that could not be made; those before it are made.
int makeInSpool(const std::vector<OwnedDirectory>& directories, std::string& failed);

// The same for one directory, as plain calls do it: it is made with the mode madeWith, and whether
// owner and mode can be set is not checked. Anything there that is no directory, a link too, stays
// as it is and is no failure. False when it cannot be made.
bool makePlainlyInSpool(const OwnedDirectory& directory, mode_t madeWith);

// As long as it lives, nobody can lead the way to the path elsewhere: for a command that is given
// the path. The directories on the way, from the domain's own to the last but one, meanwhile belong
// to root, and nobody else may write there, so nothing changes between the look and the command.
// Below the last directory nothing is touched, so mail is delivered as ever. A process that is
// killed meanwhile leaves the directories so; making the domain's tree again mends that.
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

// Takes a file or directory out of the way in one step, and syncs that: it is renamed beside its
// place to a name that no mailbox or domain can have. What is not there is out of the way already.
int moveAsideInSpool(const std::string& path);
std::string asideOf(const std::string& path);

// Removes a file, or a directory with all below it. What is not there is removed already.
int removeFromSpool(const std::string& path);

// Whether anything is there. A link that leads nowhere counts, and so does what cannot be looked
// at.
bool isInSpool(const std::string& path);

// Tells what is there from anything that is made in its place later. Empty when there is nothing.
int identityInSpool(const std::string& path, std::string& identity);

// Removes a directory that is empty; any other stays.
int removeEmptyFromSpool(const std::string& path);

#endif
