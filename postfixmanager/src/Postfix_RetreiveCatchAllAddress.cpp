#include "Backend.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"
#include "maps/MapRewrite.h"

#include <iostream>

namespace
{

// Stores the whole target address. Answers "found" also when there is no row: deliberate, hosts see
// it so.
int retrieveFromDatabase(const PostfixManager& manager, const std::string& domain,
                         std::string& target)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::CatchAllNotFound;

    const bool read = sql.readFirstFields(
        "select destination from virtual_aliases where source='@" + domain + "'",
        [&](const std::string& destination) { target = destination; });
    if (!read) {
        std::cout << "unable to run get catch all query" << std::endl;
        return PostfixResult::CatchAllNotFound;
    }
    return PostfixResult::CatchAllFound;
}

// Stores the local part only: what stands in the inbox path after the last "/", up to the "@".
int retrieveFromMap(const std::string& domain, std::string& target)
{
    const std::string key = "@" + domain;

    // Although this is a query, the map is copied: administrators look for the copy after any
    // catch-all call.
    backUpIfThere(VMAPSFILE, CatchAllWriter.backupSuffix);
    MapReader map(VMAPSFILE, key);
    if (!map.isOpen()) {
        std::cout << "File does not exist." << std::endl;
        return PostfixResult::CatchAllNotFound;
    }
    std::string_view line;
    while (map.nextLine(line)) {
        if (!isKeyedBy(line, key))
            continue;
        std::cout << line << std::endl;
        const std::string_view::size_type slash = line.rfind('/');
        if (slash == std::string_view::npos)
            continue;
        target = textBefore(line.substr(slash + 1), '@');
        return PostfixResult::CatchAllFound;
    }
    return PostfixResult::CatchAllNotFound;
}

} // namespace

int PostfixManager::Postfix_RetreiveCatchAllAddress(std::string szDomain,
                                                    std::string& szCatchAllAddress)
{
    return usesSql(*this) ? retrieveFromDatabase(*this, szDomain, szCatchAllAddress)
                          : retrieveFromMap(szDomain, szCatchAllAddress);
}
