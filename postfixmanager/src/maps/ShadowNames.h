#ifndef QV_SHADOWNAMES_H
#define QV_SHADOWNAMES_H

#include <functional>
#include <string_view>

// Hands over the names of vshadow's lines, in order, until take returns false. An unreadable file
// has none. An empty line bears the name of the line before it and so brings no new one; in front
// of all names it bears the empty name.
void visitShadowNames(const std::function<bool(std::string_view name)>& take);

#endif
