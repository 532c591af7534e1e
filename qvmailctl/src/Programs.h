// Runs other programs to ask them something: without a shell, and never longer than a while.
#ifndef QVMAILCTL_PROGRAMS_H
#define QVMAILCTL_PROGRAMS_H

#include <optional>
#include <string>
#include <vector>

// What the program prints on standard output. Nothing when it is not there, fails, or does not end
// within the seconds: it is killed then.
std::optional<std::string> outputOf(const std::vector<std::string>& command, int seconds);

// Whether the program is found, also where tools for root lie.
bool isInstalled(const std::string& program);

// PATH with where tools for root lie, which su or cron often leave out.
std::string searchPath();

std::vector<std::string> linesOf(const std::string& text);

#endif
