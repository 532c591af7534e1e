// What the targets share: a world whose files come from an input, tools that do nothing, and the
// word on what fell.
#ifndef QV_FUZZ_WORLD_H
#define QV_FUZZ_WORLD_H

#include "MapFiles.h"
#include "PostfixManager.h"
#include "PostfixTransaction.h"
#include "maps/MapLines.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// All maps, empty, and nothing else.
void emptyWorld();

void put(const std::string& path, std::string_view content);
std::string get(const std::string& path);

// The lines that are not empty.
std::vector<std::string> linesOf(std::string_view text);

// Ends the target, and so keeps the input, unless it is true.
void require(bool isTrue, const std::string& what);

// What a host has, with its accounts in map files.
struct Manager : private CQVTrackManager, PostfixManager {
    Manager() : PostfixManager(this, "", "files", "", "", "", "", "") {}
};

#endif
