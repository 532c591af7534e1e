#include "CallTrace.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"

#include <algorithm>

namespace
{

// A line with three addresses or more is a list's.
constexpr int ListAddresses = 3;

bool forwardsTo(std::string_view line, const std::string& address)
{
    const std::string_view::size_type blank = line.find(' ');
    return blank != std::string_view::npos && leadsTo(line.substr(blank), address);
}

} // namespace

// Reads the map also when accounts are in the database: deliberate, hosts see it so.
int PostfixManager::Postfix_GetAliasList(std::string EmailAddress, VectorString* Aliases)
{
    traceCall(*this, "Postfix_GetAliasList", {EmailAddress}, {"EmailAddress"});

    MapReader map(VALIASFILE, EmailAddress);
    if (!map.isOpen())
        return PostfixResult::NotRead;
    std::string_view line;
    while (map.nextLine(line))
        if (std::count(line.begin(), line.end(), '@') < ListAddresses &&
            forwardsTo(line, EmailAddress))
            Aliases->emplace_back(textBefore(line, '@'));
    return PostfixResult::Done;
}
