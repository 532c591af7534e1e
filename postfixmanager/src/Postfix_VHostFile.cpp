#include "CallConvention.h"
#include "MapLines.h"
#include "MapReader.h"
#include "MapRewrite.h"

namespace
{

int change(const PostfixManager& manager, const std::string& statement)
{
    return changeTable(manager, statement) ? PostfixResult::Done : PostfixResult::Failed;
}

// A line that contains the domain counts as the domain, here and on removal, on purpose: hosts rely
// on "b.com" being taken as listed beside "ab.com".
bool isListed(const std::string& domain)
{
    MapReader list(VDOMAINFILE, domain);
    std::string_view line;
    return list.nextLine(line);
}

int addToFile(const std::string& domain)
{
    if (!isListed(domain))
        appendLine(VDOMAINFILE, domain);
    return PostfixResult::Done;
}

int removeFromFile(const std::string& domain)
{
    const bool rewritten = rewriteMap(DomainList, [&](std::string_view line, MapWriter& newList) {
        if (!line.empty() && !contains(line, domain))
            newList.writeLine(line);
    });
    return rewritten ? PostfixResult::Done : PostfixResult::Failed;
}

} // namespace

int PostfixManager::Postfix_VHostFile(std::string DomainName, std::string Task)
{
    traceCall(*this, "Postfix_VHostFile", {DomainName, Task}, {"DomainName", "Task"});

    // The file is copied whatever the backend and the task.
    backUp(VDOMAINFILE, DomainList.backupSuffix);
    openMapDirectory();

    if (Task == "AddDomain")
        return usesSql(*this)
                   ? change(*this, "insert into  virtual_domains values ('" + DomainName + "')")
                   : addToFile(DomainName);
    if (Task == "RmvDomain")
        return usesSql(*this)
                   ? change(*this, "delete from  virtual_domains where name = '" + DomainName + "'")
                   : removeFromFile(DomainName);
    return PostfixResult::Done;
}
