// A quota as hosts give and get it, and as the database keeps it.
#ifndef QV_QUOTATEXT_H
#define QV_QUOTATEXT_H

#include <string>

inline constexpr const char* UnlimitedQuota = "-1";

inline std::string quotaInDatabase(const std::string& quota)
{
    return quota == UnlimitedQuota ? "0" : quota;
}

#endif
