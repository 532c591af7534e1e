// What a transaction changes, found by comparing each staged copy with its map.
#ifndef QV_CHANGES_H
#define QV_CHANGES_H

#include "stage/Stage.h"

#include <string>
#include <vector>

// An entry before and after, as whole lines. before is empty when it is new, after when it is gone.
struct LineChange {
    std::string before;
    std::string after;
};

// The changed entries. One that was removed and added again as it was is not among them.
std::vector<LineChange> changesOf(const StagedMap& staged);

// Refuses what no reader of the map could use: a new or changed line that lacks a field or holds
// what belongs to no field, and a new entry whose name is there already.
void checkChanges(const StagedMap& staged, const std::vector<LineChange>& changes);

#endif
