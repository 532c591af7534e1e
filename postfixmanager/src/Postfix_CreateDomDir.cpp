#include "CallTrace.h"
#include "stage/Effects.h"
#include "system/DomainTree.h"

int PostfixManager::Postfix_CreateDomDir(std::string DomainName)
{
    // The list of names holds the domain itself in place of a label: deliberate, the control
    // panel's tracing records show it so.
    traceCall(*this, "Postfix_CreateDomDir", {DomainName}, {DomainName});

    for (const TreeDirectory& directory : DomainTree) {
        const std::string path = VSPOOLDIR "/" + DomainName + directory.path;
        if (!makeSpoolDirectory(path, directory.madeWith, directory.mode))
            return PostfixResult::Failed;
    }
    return PostfixResult::Done;
}
