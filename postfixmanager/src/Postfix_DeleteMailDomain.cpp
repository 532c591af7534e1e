#include "Backend.h"
#include "CallTrace.h"
#include "maps/MapReader.h"
#include "stage/Effects.h"

#include <iostream>

namespace
{

bool deleteMailboxLines(PostfixManager& manager, const std::string& domain)
{
    for (const char* const file : {VPASSWDFILE, VSHADOWFILE, VMAPSFILE, VQUOTAFILE}) {
        if (!mapExists(file))
            continue;
        manager.ErrNo = manager.Postfix_DeleteDomMailboxes(domain, file);
        if (manager.ErrNo != PostfixResult::Done)
            return false;
    }
    return true;
}

} // namespace

int PostfixManager::Postfix_DeleteMailDomain(std::string DomainName)
{
    // The name is that of creation: deliberate, the control panel's tracing records show it so.
    traceCall(*this, "Postfix_CreateMailDomain", {DomainName}, {"DomainName"});

    ErrNo = Postfix_VHostFile(DomainName, "RmvDomain");
    if (ErrNo != PostfixResult::Done)
        return PostfixResult::RequestFailed;

    if (usesSql(*this)) {
        if (!changeTable(*this,
                         "delete from virtual_users where email like '%@" + DomainName + "'"))
            return PostfixResult::Failed;
    } else if (!deleteMailboxLines(*this, DomainName)) {
        return PostfixResult::RequestFailed;
    }

    ErrNo = Postfix_DeleteDomAliases(DomainName);
    if (ErrNo != PostfixResult::Done)
        return PostfixResult::RequestFailed;

    const std::string tree = VSPOOLDIR "/" + DomainName;
    const std::string removal = "rm -r " + tree;
    std::cout << removal << std::endl;
    removeSpoolPath(removal, tree);
    return PostfixResult::DomainDeleted;
}
