// What init is to make, and what it reports.
#ifndef QVMAILCTL_INIT_SETUP_H
#define QVMAILCTL_INIT_SETUP_H

#include "Output.h"

#include <string>
#include <vector>

struct Setup {
    bool usesSql = false;
    bool servers = false; // set up Postfix and Dovecot too
    bool dryRun = false;
    std::string config; // the directory of the shipped settings

    std::vector<std::string> made = {};
    std::vector<std::string> kept = {}; // was there already
    std::vector<std::string> changed = {};
    std::vector<std::string> toDo = {}; // what is left to the administrator

    bool changesNothing() const { return made.empty() && changed.empty(); }

    // The word in the names of the shipped files.
    std::string backend() const { return usesSql ? "mysql" : "files"; }
    std::string shipped(const std::string& name) const { return config + "/" + name; }

    Answer answer() const;
};

#endif
