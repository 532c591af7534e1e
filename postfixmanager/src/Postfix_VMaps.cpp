#include "CallConvention.h"
#include "MapLines.h"
#include "MapReader.h"
#include "MapRewrite.h"

namespace
{

int addUser(const std::string& address, const std::string& domain)
{
    const std::string entry = address + " " + domain + "/mail/inbox/" + address;

    bool isNewMap;
    {
        MapReader map(VMAPSFILE, address);
        isNewMap = !map.isOpen();
        std::string_view line;
        // Anywhere in the line, on purpose: jim.bob's line also stands for bob's.
        if (map.nextLine(line))
            return PostfixResult::Done;
    }
    appendLine(VMAPSFILE, entry);
    if (isNewMap)
        settleOwnerAndMode(MailboxMap);
    publish(MailboxMap);
    return PostfixResult::Done;
}

// The bare text, anywhere in the line, on purpose. Mailbox deletion passes the whole address.
int removeUser(const std::string& user)
{
    const bool rewritten = rewriteMap(MailboxMap, [&](std::string_view line, MapWriter& newMap) {
        if (!line.empty() && !contains(line, user))
            newMap.writeLine(line);
    });
    if (!rewritten)
        return PostfixResult::Failed;
    publish(MailboxMap);
    return PostfixResult::Done;
}

} // namespace

int PostfixManager::Postfix_VMaps(std::string UserName, std::string DomainName, std::string Task)
{
    traceCall(*this, "Postfix_VMaps", {UserName, DomainName, Task},
              {"UserName", "DomainName", "Task"});
    backUp(VMAPSFILE, MailboxMap.backupSuffix);
    openMapDirectory();

    if (Task == "AddUser")
        return addUser(UserName + "@" + DomainName, DomainName);
    if (Task == "RmvUser")
        return removeUser(UserName);

    // Another task changes nothing, yet the table is rebuilt and the server reloaded.
    publish(MailboxMap);
    return PostfixResult::Done;
}
