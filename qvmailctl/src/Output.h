// What a person or a script sees: answers on standard output, one a line, all else on standard
// error.
#ifndef QVMAILCTL_OUTPUT_H
#define QVMAILCTL_OUTPUT_H

#include <string>

// While it lives, the library's progress lines (password hashes among them) stay off standard
// output: they go nowhere or, when verbose, to standard error. What the commands that it runs
// complain of is held back: most of it is about files that need not be there.
class QuietLibrary
{
public:
    explicit QuietLibrary(bool verbose);
    ~QuietLibrary();
    QuietLibrary(const QuietLibrary&) = delete;
    QuietLibrary& operator=(const QuietLibrary&) = delete;

    // Shows what was held back: all of it after a failure, else what postmap and postfix warn of.
    void showComplaints(bool all) const;

private:
    int m_complaints = -1;
};

void answer(const std::string& line);
void tell(const std::string& line);
void prompt(const std::string& question); // no line end

#endif
