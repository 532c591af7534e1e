#ifndef QV_LINEFAULTS_H
#define QV_LINEFAULTS_H

#include <string_view>

// What keeps the readers of the map from using the line: it lacks a field, or holds what belongs to
// no field. Null when nothing does.
const char* faultOfLine(std::string_view map, std::string_view line);

#endif
