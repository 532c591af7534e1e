// What a check found wrong, and how "check --repair" mends it.
#ifndef QVMAILCTL_CHECK_FINDINGS_H
#define QVMAILCTL_CHECK_FINDINGS_H

#include "Mending.h"

#include <functional>
#include <string>
#include <vector>

// How it is mended: by a person; as what the lock of all changes needs; under that lock, beside the
// maps and tables; or in the one transaction of the maps or the database.
enum class Mend { ByHand, First, Beside, InTransaction };

struct Finding {
    const char* kind;   // a word for scripts
    std::string place;  // the path, or the name of the table
    std::string name;   // of the entry, domain or setting; empty: none
    std::string fault;  // what is wrong
    std::string wayOut; // what to do; of what can be mended, what mending makes of it
    Mend how = Mend::ByHand;
    std::function<void(Mending& mending)> mend = nullptr; // throws a Refusal when that fails
};

using Findings = std::vector<Finding>;

#endif
