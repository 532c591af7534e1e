#ifndef QV_TRIMRIGHTSPACES_H
#define QV_TRIMRIGHTSPACES_H

#include "Export.h"

#include <string>

// trimRightSpaces - take blanks and tabs off both ends of szWord, in place
//
// Both ends, whatever the name says; a text of nothing but blanks and tabs becomes empty.
QV_EXPORT void trimRightSpaces(std::string& szWord);

#endif
