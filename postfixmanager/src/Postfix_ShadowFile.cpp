#include "system/LargeFilesAndDates.h"

#include "CallTrace.h"
#include "PasswordHash.h"
#include "maps/AccountFile.h"
#include "maps/MapRewrite.h"

#include <cstring>
#include <ctime>

namespace
{

constexpr int SecondsPerDay = 86400;

// Completes the record. False when the password cannot be hashed.
bool complete(spwd& shadow)
{
    shadow.sp_lstchg = static_cast<long>(time(nullptr) / SecondsPerDay);
    shadow.sp_min = -1;
    shadow.sp_max = 99999;
    shadow.sp_warn = -1;
    shadow.sp_inact = -1;
    return hashPassword(shadow.sp_pwdp);
}

} // namespace

int PostfixManager::Postfix_ShadowFile(SvpopUser* vpopUserData)
{
    traceCall(*this, "Postfix_ShadowFile", {}, {});
    backUp(VSHADOWFILE, Backup);

    FILE* const file = openLockedForAppend(VSHADOWFILE);
    if (file == nullptr)
        return PostfixResult::MailboxNotCreated;
    spwd& shadow = *vpopUserData->Shadow;
    const bool written = complete(shadow) && putspent(&shadow, file) != -1;
    closeAppended(file, VSHADOWFILE, written);
    return written ? PostfixResult::Done : PostfixResult::MailboxNotCreated;
}
