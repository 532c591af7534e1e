// The directory in which transactions stage their copies: the lock that keeps transactions apart,
// and what is done with the files that an earlier one left there.
#ifndef QV_STAGEDIRECTORY_H
#define QV_STAGEDIRECTORY_H

#include "stage/SqlTransaction.h"
#include "stage/Stage.h"
#include "transaction/Journal.h"

#include <string>
#include <vector>

// The lock of all transactions of this machine. It ends with its process in any case. It lies on
// the directory itself, which only root can open: nobody else can hold it.
class StageLock
{
public:
    // Waits for the lock for as many seconds as patience says, without end when that is negative.
    // Throws a Refusal when the directory cannot be made or does not belong to root alone.
    explicit StageLock(int patience);
    ~StageLock();
    StageLock(const StageLock&) = delete;
    StageLock& operator=(const StageLock&) = delete;

    bool isHeld() const { return m_isHeld; }

    // Whether the directory is still the one that others lock.
    bool isInPlace() const;

    // The number of the process that holds it, as far as the system tells.
    std::string holder() const;

private:
    int m_directory = -1;
    bool m_isHeld = false;
};

// Notes the directories of the spool that are about to be made, so that they are removed again if
// nothing is committed.
void noteNewDirectories(const std::vector<OwnedDirectory>& directories);

// Carries out the journal that an earlier transaction left. Where there is none to carry out, takes
// back what that transaction made and empties the directory.
//
// database  answers whether a change of the database was committed; null when the accounts are in
// files.
void finishEarlier(SqlTransaction* database);

// Takes back what was made for a commit that was given up, and empties the directory. The
// directories of a mailbox or domain that exists stay: somebody else has made it meanwhile.
void discardStage(SqlTransaction* database);

// Empties the directory after a commit that was carried out. The journal goes once nothing is left
// that the next transaction could take back. What could not be removed is noted for the next ones.
void clearStage(const std::vector<Journal::Removal>& left);

#endif
