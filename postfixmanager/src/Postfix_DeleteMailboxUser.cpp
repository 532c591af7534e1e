#include "CallTrace.h"
#include "maps/MapLines.h"
#include "maps/MapRewrite.h"
#include "system/SystemAccounts.h"

#include <grp.h>

int PostfixManager::Postfix_DeleteMailboxUser(std::string UserName, const char* FPath)
{
    traceCall(*this, "Postfix_DeleteMailboxUser", {UserName, FPath}, {"UserName", "FPath"});

    // Unlike the other writers, this one keeps empty lines, the one after the last line end too.
    rewriteMap(MailboxLinesWriter, FPath, [&](std::string_view line, MapWriter& newFile) {
        if (!standsFor(line, line, UserName))
            newFile.writeLine(line);
    });
    // The lines are gone all the same.
    return getgrnam(MailOwner) == nullptr ? PostfixResult::GroupUnknown : PostfixResult::Done;
}
