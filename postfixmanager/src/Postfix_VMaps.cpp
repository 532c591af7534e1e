#include "CallTrace.h"
#include "maps/MapEntries.h"
#include "maps/MapLines.h"
#include "system/DomainTree.h"

namespace
{

// The text may stand anywhere in the line: deliberate, hosts rely on it. So jim.bob's line also
// stands for bob's, and a removal of the bare "bob" takes every line with that text. Mailbox
// deletion passes the whole address.
LineTest holds(const std::string& text)
{
    return [text](std::string_view line) { return standsFor(line, line, text); };
}

} // namespace

int PostfixManager::Postfix_VMaps(std::string UserName, std::string DomainName, std::string Task)
{
    traceCall(*this, "Postfix_VMaps", {UserName, DomainName, Task},
              {"UserName", "DomainName", "Task"});
    backUp(VMAPSFILE, MailboxMapWriter.backupSuffix);
    openMapDirectory();

    if (Task == "AddUser") {
        const std::string address = UserName + "@" + DomainName;
        const std::string entry = address + " " + inboxOf(DomainName, address);
        if (addEntry(MailboxMapWriter, address, holds(address), entry) == Added::No)
            return PostfixResult::Done;
    } else if (Task == "RmvUser") {
        if (!dropEntries(MailboxMapWriter, holds(UserName)))
            return PostfixResult::Failed;
    }
    // Any other task changes nothing, yet publishes.
    publish(MailboxMapWriter);
    return PostfixResult::Done;
}
