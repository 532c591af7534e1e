#include "AccountFile.h"
#include "CallConvention.h"
#include "MapRewrite.h"

int PostfixManager::Postfix_PasswdFile(SvpopUser* vpopUserData)
{
    traceCall(*this, "Postfix_PasswdFile", {}, {});
    backUp(VPASSWDFILE, Backup);

    FILE* const file = openLockedForAppend(VPASSWDFILE);
    if (file == nullptr)
        return PostfixResult::MailboxNotCreated;
    const int written = putpwent(vpopUserData->Password, file);
    fclose(file);
    if (written == -1)
        return PostfixResult::MailboxNotCreated;

    settleAccountFile(VPASSWDFILE);
    return PostfixResult::Done;
}
