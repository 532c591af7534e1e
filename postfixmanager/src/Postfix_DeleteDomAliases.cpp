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

// The domain may stand anywhere in the key: deliberate, hosts rely on it. An empty line counts with
// the line before it, also the one that LineReader yields at the end.
int deleteFromMap(const std::string& domain)
{
    std::string previous;
    rewriteMap(DomainAliasesWriter, [&](std::string_view line, MapWriter& newMap) {
        if (!line.empty())
            previous = line;
        if (!liesIn(previous, mapKey(previous), domain))
            newMap.writeLine(line);
    });
    // Deliberate, for the hosts that see it so: also when there is no map.
    publish(DomainAliasesWriter);
    return PostfixResult::Done;
}

} // namespace

int PostfixManager::Postfix_DeleteDomAliases(std::string DomainName)
{
    traceCall(*this, "Postfix_DeleteDomAliases", {DomainName}, {"DomainName"});
    return usesSql(*this) ? deleteFromDatabase(*this, DomainName) : deleteFromMap(DomainName);
}
