#include "CallTrace.h"
#include "maps/MapLines.h"
#include "maps/MapRewrite.h"
#include "system/SystemAccounts.h"

#include <grp.h>

int PostfixManager::Postfix_DeleteMailboxUser(std::string UserName, const char* FPath)
{
    traceCall(*this, "Postfix_DeleteMailboxUser", {UserName, FPath}, {"UserName", "FPath"});

    // Unlike the other writers, this one keeps empty lines, also the one that LineReader yields at
    // the end.
    rewriteMap(MailboxLinesWriter, FPath, [&](std::string_view line, MapWriter& newFile) {
        if (!standsFor(line, line, UserName))
            newFile.writeLine(line);
    });
    // The lines are gone also when the group is unknown.
    return getgrnam(MailOwner) == nullptr ? PostfixResult::GroupUnknown : PostfixResult::Done;
}
