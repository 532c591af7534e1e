// The delivery agent's quota fields of a line of vpasswd, behind the seven of passwd(5):
// ":userdb_mail=mbox:HOME userdb_quota_rule=*:storage=QUOTA" and "B", the unit.
#ifndef QV_QUOTAFIELDS_H
#define QV_QUOTAFIELDS_H

#include <optional>
#include <string>
#include <string_view>

// Whether a quota can be set in the line: it has seven fields that are not empty, or those and the
// quota's. A line with an empty comment field has too few, so its quota cannot be changed.
bool mayHaveQuotaFields(std::string_view line);

// The quota, without its unit; nothing when there are no such fields.
std::optional<std::string> quotaInFields(std::string_view line);

// quota  a number of bytes, without unit.
std::string addQuotaFields(std::string_view line, std::string_view home, std::string_view quota);

// The line with this quota; unchanged when none can be set in it.
std::string withQuotaFields(std::string_view line, std::string_view quota);

// The line cut back to its first seven fields.
std::string withoutQuotaFields(std::string_view line);

#endif
