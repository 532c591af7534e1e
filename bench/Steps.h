// Steps that an operation cannot do without: its floor is the sum of them.
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

// The file is copied byte by byte, and what the copy replaces is removed.
Steps rewritten(const std::string& file);

// "postmap FILE" and "postfix reload".
Steps published(const std::string& file);
Steps reloaded();

Steps command(const std::string& text);
Steps hashed(int passwords);
Steps madeDirectories(const std::vector<std::string>& paths);

// One connection, as the library makes it, and statements whose answers are read to their end.
Steps connected(const Statements& statements);

// A program that reads the files, without a shell.
Steps ran(const std::vector<std::string>& words);

#endif
