#ifndef QV_LINEFAULTS_H
#define QV_LINEFAULTS_H

#include <string_view>

// Why the readers of the map cannot use the line: it lacks a field, or holds what belongs to no
// field. Null when they can.
const char* faultOfLine(std::string_view map, std::string_view line);

// Whether the line is a number that a plain change of a user's type has written into an empty line
// of an account file. No account has such a name.
bool isNumberOfType(std::string_view map, std::string_view line);

#endif
