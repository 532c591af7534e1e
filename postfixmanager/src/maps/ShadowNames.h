#ifndef QV_SHADOWNAMES_H
#define QV_SHADOWNAMES_H

#include <functional>
#include <string_view>

// Hands over the names of vshadow's lines, in order, until take returns false. An unreadable file
// has no names. An empty line counts with the line before it and is passed over; only at the very
// start it is a line with an empty name.
void visitShadowNames(const std::function<bool(std::string_view name)>& take);

#endif
