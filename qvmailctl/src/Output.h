// What a person or a script sees: the answer on standard output, everything else on standard error.
#ifndef QVMAILCTL_OUTPUT_H
#define QVMAILCTL_OUTPUT_H

#include "Results.h"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

using Json = nlohmann::ordered_json;

// The answer in two forms: for scripts (--json) and for people, one item a line. An answer may be a
// failure that has a result: the command then also prints the sentence and ends with the status.
struct Answer { // NOLINT(bugprone-exception-escape): to move a Json throws nothing
    Json result;
    std::vector<std::string> lines;
    Status status = Status::Done;
    std::string sentence = {};
};

// While it lives, nothing that the library prints (password hashes among it) reaches standard
// output. It is dropped or, with --verbose, written to standard error at the end, in a form that a
// terminal may show. What the programs that it runs complain of is held back: most of it is about
// files that need not be there.
class QuietLibrary
{
public:
    explicit QuietLibrary(bool verbose);
    ~QuietLibrary();
    QuietLibrary(const QuietLibrary&) = delete;
    QuietLibrary& operator=(const QuietLibrary&) = delete;

    // Shows what was held back: everything (all), or the warnings of postmap and postfix.
    void showComplaints(bool all) const;

private:
    std::string complaints() const;

    bool m_isVerbose;
    int m_complaints = -1;
};

// Prints the answer; with asJson as one document, {"ok":true,"result":...}. False when it cannot be
// written.
bool give(Answer answer, bool asJson);

// Prints the sentence on standard error; with asJson also a document on standard output:
// {"ok":false,"error":...}.
void giveFailure(const Stop& stop, bool asJson);

void tell(const std::string& line);
void prompt(const std::string& question); // no line end

// Shows on a terminal how far a long change is: one line, which disappears at the end.
class Progress
{
public:
    Progress(std::size_t steps, bool isWanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void step();

private:
    std::size_t m_steps;
    std::size_t m_done = 0;
    std::string m_line;
    bool m_isShown;
};

// False, with errno, when the text cannot be written whole.
bool writeAll(int descriptor, std::string_view text);

// Whether standard output is a file that other users may read.
bool mayOthersReadAnswer();

// The text as a terminal may show it: control characters escaped, and cut when it is long.
std::string shown(std::string_view text);
std::string inQuotes(std::string_view text);

#endif
