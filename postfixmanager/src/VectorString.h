// An ordered list of strings: the two tracing lists and the result lists of queries.
#ifndef QV_VECTORSTRING_H
#define QV_VECTORSTRING_H

#include <string>
#include <vector>

typedef std::vector<std::string> VectorString;

#endif
