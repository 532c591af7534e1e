// What a person or a script sees: the answer on standard output, all else on standard error.
#ifndef QVMAILCTL_OUTPUT_H
#define QVMAILCTL_OUTPUT_H

#include "Results.h"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

using Json = nlohmann::ordered_json;

// The same twice: for scripts (--json) and for people, one item a line. An answer may be a failure
// with a result: the command then ends with the status, and says the sentence too.
struct Answer { // NOLINT(bugprone-exception-escape): to move a Json throws nothing
    Json result;
    std::vector<std::string> lines;
    Status status = Status::Done;
    std::string sentence = {};
};

// While it lives, the library's progress lines (password hashes among them) stay off standard
// output: they go nowhere or, when verbose, to standard error when it ends, as a terminal may show
// them. What the commands that it runs complain of is held back: most of it is about files that need
// not be there.
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
    std::string complaints() const;

    bool m_isVerbose;
    int m_complaints = -1;
};

// With asJson, one document on standard output, whatever happens: {"ok":true,"result":...}. False
// when it cannot be written.
bool give(const Answer& answer, bool asJson);

// The sentence on standard error; with asJson also {"ok":false,"error":...} on standard output.
void giveFailure(const Stop& stop, bool asJson);

void tell(const std::string& line);
void prompt(const std::string& question); // no line end

// How far a long change is, on a terminal alone: one line, which goes away with it.
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

// Whether the answer goes into a file that other users may read.
bool mayOthersReadAnswer();

// The text as a terminal may show it: control characters escaped, and cut when it is long.
std::string shown(std::string_view text);
std::string inQuotes(std::string_view text);

#endif
