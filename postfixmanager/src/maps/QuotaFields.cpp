#include "maps/QuotaFields.h"

#include "maps/MapLines.h"

#include <algorithm>
#include <vector>

namespace
{

constexpr std::size_t PlainFields = 7;
constexpr std::size_t HomeField = 5; // counted from 0
constexpr std::size_t FieldsWithQuota = 10;
constexpr std::string_view QuotaMark = " userdb_quota_rule=*:storage=";

using Fields = std::vector<std::string_view>;

// Splits as strtok does: a run of colons is one separator, so empty fields do not count.
Fields splitFields(std::string_view line)
{
    Fields fields;
    while (!line.empty()) {
        const std::string_view field = textBefore(line, ':');
        if (!field.empty())
            fields.push_back(field);
        line.remove_prefix(std::min(field.size() + 1, line.size()));
    }
    return fields;
}

std::string joinFields(const Fields& fields, std::size_t count)
{
    std::string line(fields[0]);
    for (std::size_t i = 1; i < count; ++i)
        line.append(":").append(fields[i]);
    return line;
}

} // namespace

bool mayHaveQuotaFields(std::string_view line)
{
    const std::size_t count = splitFields(line).size();
    return count == PlainFields || count == FieldsWithQuota;
}

std::optional<std::string> quotaInFields(std::string_view line)
{
    const std::size_t mark = line.find(QuotaMark);
    if (mark == std::string_view::npos)
        return std::nullopt;
    return std::string(textBefore(line.substr(mark + QuotaMark.size()), 'B'));
}

std::string addQuotaFields(std::string_view line, std::string_view home, std::string_view quota)
{
    return std::string(line)
        .append(":userdb_mail=mbox:")
        .append(home)
        .append(QuotaMark)
        .append(quota)
        .append("B");
}

std::string withQuotaFields(std::string_view line, std::string_view quota)
{
    const Fields fields = splitFields(line);
    if (fields.size() == FieldsWithQuota)
        return joinFields(fields, FieldsWithQuota - 1).append(":storage=").append(quota) + "B";
    if (fields.size() == PlainFields)
        return addQuotaFields(joinFields(fields, PlainFields - 1) + ":/bin/false",
                              fields[HomeField], quota);
    return std::string(line);
}

std::string withoutQuotaFields(std::string_view line)
{
    const Fields fields = splitFields(line);
    return fields.size() < PlainFields ? std::string(line) : joinFields(fields, PlainFields);
}
