#include "CallConvention.h"
#include "stage/Effects.h"

namespace
{

struct SpoolDirectory {
    const char* path; // below the domain's own
    mode_t madeWith;
    mode_t mode;
};

// The domain's own directory ends without the set-group-id bit, on purpose; all below it keep
// theirs.
constexpr SpoolDirectory SpoolTree[] = {
    {"", 02775, 0775},
    {"/mail", 02775, 02775},
    {"/mail/inbox", 02777, 02777},
    {"/mail/home", 02775, 02775},
    {"/mail/home/oldaccounts", 02775, 02775},
};

} // namespace

int PostfixManager::Postfix_CreateDomDir(std::string DomainName)
{
    // The names list holds the domain itself instead of a label, on purpose: the control panel's
    // tracing records show it that way.
    traceCall(*this, "Postfix_CreateDomDir", {DomainName}, {DomainName});

    for (const SpoolDirectory& directory : SpoolTree) {
        const std::string path = VSPOOLDIR "/" + DomainName + directory.path;
        if (!makeSpoolDirectory(path, directory.madeWith, directory.mode))
            return PostfixResult::Failed;
    }
    return PostfixResult::Done;
}
