#include "CallConvention.h"
#include "MapLines.h"
#include "MapRewrite.h"

namespace
{

int deleteFromDatabase(const PostfixManager& manager, const std::string& domain)
{
    return changeTable(manager, "delete from virtual_aliases where source like '%@" + domain + "'")
               ? PostfixResult::Done
               : PostfixResult::Failed;
}

// The domain anywhere in the key, on purpose. An empty line bears the key of the line before it and
// shares its fate, the one after the last line end too.
int deleteFromMap(const std::string& domain)
{
    std::string key;
    rewriteMap(DomainAliases, [&](std::string_view line, MapWriter& newMap) {
        if (!line.empty())
            key = mapKey(line);
        if (!contains(key, domain))
            newMap.writeLine(line);
    });
    // Also when there is no map.
    publish(DomainAliases);
    return PostfixResult::Done;
}

} // namespace

int PostfixManager::Postfix_DeleteDomAliases(std::string DomainName)
{
    traceCall(*this, "Postfix_DeleteDomAliases", {DomainName}, {"DomainName"});
    return usesSql(*this) ? deleteFromDatabase(*this, DomainName) : deleteFromMap(DomainName);
}
