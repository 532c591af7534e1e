#include "CallTrace.h"
#include "maps/MapEntries.h"
#include "maps/MapLines.h"

namespace
{

// The domain of a line of any per-user file: behind the address stands ":" in the account files,
// a blank in the mailbox map, a tab in the quota map.
std::string_view domainOf(std::string_view line)
{
    const std::string_view rest = textAfter(line, '@');
    for (const char mark : {':', ' '})
        if (rest.find(mark) != std::string_view::npos)
            return textBefore(rest, mark);
    return textBefore(rest, '\t');
}

} // namespace

int PostfixManager::Postfix_DeleteDomMailboxes(std::string DomainName, std::string FPath)
{
    traceCall(*this, "Postfix_DeleteDomMailboxes", {DomainName, FPath}, {"DomainName", "FPath"});

    removeWorkDirectory(DomainMailboxesWriter);

    const LineTest isMine = [&](std::string_view line) {
        return isOfDomain(line, domainOf(line), DomainName);
    };
    return dropEntries(DomainMailboxesWriter, FPath, isMine) ? PostfixResult::Done
                                                             : PostfixResult::Failed;
}
