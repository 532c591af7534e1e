// The files that init makes. Each appears whole or not at all. None takes the place of a link:
// anything but a plain file in the place of a file ends the command.
#ifndef QVMAILCTL_INIT_FILES_H
#define QVMAILCTL_INIT_FILES_H

#include "init/Setup.h"
#include "system/SystemAccounts.h"

#include <string>

#include <sys/types.h>

// Who may read a file.
struct Readers {
    mode_t mode = 0644;
    const char* group = nullptr; // null: root's
};
constexpr Readers RootAlone = {0600, nullptr};

// Who may pass a directory.
constexpr Readers ForAll = {0755, nullptr};
constexpr Readers ForGroupMail = {0710, MailReaders}; // the mail servers' processes for mailboxes

bool isFile(const std::string& path);

// Makes a file or directory where there is none.
void makeFile(Setup& setup, const std::string& path, const std::string& text, Readers readers = {});
void makeDirectory(Setup& setup, const std::string& path, Readers readers = ForAll);

// Replaces a file, and keeps the former one beside it.
void replaceFile(Setup& setup, const std::string& path, const std::string& text, Readers readers);

std::string textOfFile(const std::string& path);

// The text with another value in its one line that begins with the name.
std::string withValue(const std::string& text, const std::string& name, const std::string& value);

// The value in that line; empty when there is no such line.
std::string valueIn(const std::string& text, const std::string& name);

// The text with every "from" replaced.
std::string withReplaced(std::string text, const std::string& from, const std::string& to);

#endif
