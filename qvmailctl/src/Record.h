// The record of changes in the system log: who, what, and how it ended.
#ifndef QVMAILCTL_RECORD_H
#define QVMAILCTL_RECORD_H

#include <string>

// command  the words of the command line without options. A password is never among them.
// A change of a password goes to the facility "authpriv", all else to "mail".
void record(const std::string& command, const std::string& outcome);

#endif
