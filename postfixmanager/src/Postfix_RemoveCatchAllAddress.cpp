#include "Backend.h"
#include "maps/MapLines.h"
#include "maps/MapRewrite.h"

#include <iostream>

namespace
{

int removeFromDatabase(const PostfixManager& manager, const std::string& domain)
{
    return changeTable(manager, "delete from virtual_aliases where source = '@" + domain + "'")
               ? PostfixResult::CatchAllRemoved
               : PostfixResult::CatchAllNotRemoved;
}

int removeFromMap(const std::string& domain)
{
    const std::string key = "@" + domain;

    backUpIfThere(VMAPSFILE, CatchAllWriter.backupSuffix);
    const bool rewritten =
        rewriteMap(CatchAllWriter, [&](std::string_view line, MapWriter& newMap) {
            if (isKeyedBy(line, key))
                std::cout << line << std::endl;
            else if (!line.empty())
                newMap.writeLine(line);
        });
    if (rewritten)
        publish(CatchAllWriter);
    else
        std::cout << "File does not exist." << std::endl;
    // Without a map there is no catch-all to remove: a success. An update then fails.
    return PostfixResult::CatchAllRemoved;
}

} // namespace

int PostfixManager::Postfix_RemoveCatchAllAddress(std::string szDomain)
{
    return usesSql(*this) ? removeFromDatabase(*this, szDomain) : removeFromMap(szDomain);
}
