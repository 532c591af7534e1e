// The steps that an operation cannot do without. Its floor is their sum.
#ifndef BENCH_STEPS_H
#define BENCH_STEPS_H

#include "World.h"

#include <functional>
#include <string>
#include <vector>

using Steps = std::vector<std::function<void()>>;
using Statements = std::vector<std::string>;

Steps operator+(Steps a, const Steps& b);
void run(const Steps& steps);

// "cp FILE FILE.suffix", as the library runs it.
Steps backedUp(const std::string& file, const std::string& suffix = ".qvbackup");

// Copies the file byte by byte and removes the one that the copy replaces.
Steps rewritten(const std::string& file);

// "postmap FILE" and "postfix reload".
Steps published(const std::string& file);
Steps reloaded();

Steps command(const std::string& text);
Steps hashed(int passwords);
Steps madeDirectories(const std::vector<std::string>& paths);

// Connects as the library does, and runs the statements, reading all of their answers.
Steps connected(const Statements& statements);

// Runs a program without a shell.
Steps ran(const std::vector<std::string>& words);

#endif
