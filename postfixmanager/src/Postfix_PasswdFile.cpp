#include "CallTrace.h"
#include "maps/AccountFile.h"
#include "maps/MapRewrite.h"

int PostfixManager::Postfix_PasswdFile(SvpopUser* vpopUserData)
{
    traceCall(*this, "Postfix_PasswdFile", {}, {});
    backUp(VPASSWDFILE, Backup);

    FILE* const file = openLockedForAppend(VPASSWDFILE);
    if (file == nullptr)
        return PostfixResult::MailboxNotCreated;
    const bool written = putpwent(vpopUserData->Password, file) != -1;
    closeAppended(file, VPASSWDFILE, written);
    return written ? PostfixResult::Done : PostfixResult::MailboxNotCreated;
}
