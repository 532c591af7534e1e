// What a check found wrong, and how "check --repair" mends it.
#ifndef QVMAILCTL_CHECK_FINDINGS_H
#define QVMAILCTL_CHECK_FINDINGS_H

#include "Mending.h"

#include <functional>
#include <string>
#include <vector>

// Who mends a finding, and when: a person; --repair before it takes the lock, because the lock
// needs it; under the lock, beside the maps and the database; or in the one transaction.
enum class Mend { ByHand, First, Beside, InTransaction };

struct Finding {
    const char* kind;   // a word for scripts
    std::string place;  // the path, or the name of the table
    std::string name;   // of the entry, domain or setting; empty: none
    std::string fault;  // what is wrong
    std::string wayOut; // what to do, or what --repair makes of it
    Mend how = Mend::ByHand;
    std::function<void(Mending& mending)> mend = nullptr; // throws a Refusal when that fails
};

using Findings = std::vector<Finding>;

#endif
