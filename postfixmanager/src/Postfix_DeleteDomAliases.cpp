#include "Backend.h"
#include "CallTrace.h"
#include "maps/MapLines.h"
#include "maps/MapRewrite.h"

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
    std::string previous;
    rewriteMap(DomainAliasesWriter, [&](std::string_view line, MapWriter& newMap) {
        if (!line.empty())
            previous = line;
        if (!liesIn(previous, mapKey(previous), domain))
            newMap.writeLine(line);
    });
    // Also when there is no map.
    publish(DomainAliasesWriter);
    return PostfixResult::Done;
}

} // namespace

int PostfixManager::Postfix_DeleteDomAliases(std::string DomainName)
{
    traceCall(*this, "Postfix_DeleteDomAliases", {DomainName}, {"DomainName"});
    return usesSql(*this) ? deleteFromDatabase(*this, DomainName) : deleteFromMap(DomainName);
}
