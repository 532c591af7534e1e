// Runs other programs to ask them something: without a shell, and with a time limit.
#ifndef QVMAILCTL_PROGRAMS_H
#define QVMAILCTL_PROGRAMS_H

#include <optional>
#include <string>
#include <vector>

// What the program prints on standard output. Nothing when the program is missing, fails, or does
// not end within the seconds; it is killed then.
std::optional<std::string> outputOf(const std::vector<std::string>& command, int seconds);

// Whether the program is found in searchPath().
bool isInstalled(const std::string& program);

// PATH, and the directories of tools for root, which su or cron often leave out.
std::string searchPath();

// Removes what a postmap that was killed while it made the table of the map has left, and which is
// in the way of every other.
void removeHalfTable(const std::string& map);

std::vector<std::string> linesOf(const std::string& text);

#endif
