#include "Backend.h"
#include "CallTrace.h"
#include "maps/MapEntries.h"
#include "maps/MapLines.h"

namespace
{

int change(const PostfixManager& manager, const std::string& statement)
{
    return changeTable(manager, statement) ? PostfixResult::Done : PostfixResult::Failed;
}

// A line that contains the domain counts as the domain: deliberate, hosts rely on "b.com" being
// taken as listed beside "ab.com", and being removed with it.
LineTest lists(const std::string& domain)
{
    return [domain](std::string_view line) { return standsFor(line, line, domain); };
}

int addToFile(const std::string& domain)
{
    addEntry(DomainListWriter, domain, lists(domain), domain);
    return PostfixResult::Done;
}

int removeFromFile(const std::string& domain)
{
    return dropEntries(DomainListWriter, lists(domain)) ? PostfixResult::Done
                                                        : PostfixResult::Failed;
}

} // namespace

int PostfixManager::Postfix_VHostFile(std::string DomainName, std::string Task)
{
    traceCall(*this, "Postfix_VHostFile", {DomainName, Task}, {"DomainName", "Task"});

    // The file is copied for every task, also when accounts are in the database.
    backUp(VDOMAINFILE, DomainListWriter.backupSuffix);
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
