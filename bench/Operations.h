// What is measured, and what each operation is compared with.
#ifndef BENCH_OPERATIONS_H
#define BENCH_OPERATIONS_H

#include "Steps.h"

#include <functional>
#include <string>
#include <vector>

// Something that an operation is compared with. The first of its sides is its floor.
struct Side {
    const char* name;
    Steps steps;
};
using Sides = std::vector<Side>;

struct Operation {
    const char* kind;
    std::string name;
    std::function<void(PostfixManager&)> run;
    Sides onFiles, inDatabase; // empty: not measured there
};
using Operations = std::vector<Operation>;

// Every operation of the library.
Operations libraryOperations(const World& world);

// Mailboxes with quotas, several in one transaction.
Operations transactions(const World& world);

// What the library does for a command of qvmailctl.
Operations commandOperations(const World& world);

// The statement that inserts an alias, and those that insert a mailbox.
std::string insertion(const std::string& source, const std::string& target);
Statements insertions(const std::string& address);

// Mailboxes new0, new1 and so on in the world's domain.
std::string newUser(int number);
void createMailbox(PostfixManager& manager, const World& world, int number);

void expect(bool isAsExpected, const std::string& what);

#endif
