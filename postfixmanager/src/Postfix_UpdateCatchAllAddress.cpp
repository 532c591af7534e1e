#include "Backend.h"
#include "CallTrace.h"
#include "maps/MapEntries.h"
#include "maps/MapLines.h"
#include "system/DomainTree.h"

#include <iostream>

namespace
{

int updateDatabase(PostfixManager& manager, const std::string& domain, const std::string& user)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::CatchAllNotSet;

    const std::string target = user + "@" + domain;
    const std::string query =
        manager.Postfix_IsCatchAllExists(domain)
            ? "update virtual_aliases set destination='" + target + "' where source='@" + domain +
                  "'"
            : "insert into virtual_aliases values ('@" + domain + "', '" + target + "')";
    return sql.execute(query) ? PostfixResult::CatchAllSet : PostfixResult::CatchAllNotSet;
}

int updateMap(const std::string& domain, const std::string& user)
{
    const std::string key = "@" + domain;
    const std::string entry = key + " " + inboxOf(domain, user + key);

    backUpIfThere(VMAPSFILE, CatchAllWriter.backupSuffix);
    const LineTest isMine = [&](std::string_view line) { return isKeyedBy(line, key); };
    if (replaceEntries(CatchAllWriter, isMine, entry, WhenAbsent::Add) == Replaced::NotOpened) {
        std::cout << "File does not exist." << std::endl;
        return PostfixResult::CatchAllNotSet;
    }
    publish(CatchAllWriter);
    return PostfixResult::CatchAllSet;
}

} // namespace

int PostfixManager::Postfix_UpdateCatchAllAddress(std::string Domain, std::string CatchAllAddress)
{
    traceCall(*this, "Postfix_UpdateCatchAllAddress", {Domain, CatchAllAddress},
              {"Domain", "CatchAllAddress"});
    return usesSql(*this) ? updateDatabase(*this, Domain, CatchAllAddress)
                          : updateMap(Domain, CatchAllAddress);
}
