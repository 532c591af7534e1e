#include "CallConvention.h"
#include "MapLines.h"
#include "MapReader.h"
#include "MapRewrite.h"

#include <grp.h>
#include <unistd.h>

namespace
{

constexpr const char* WorkFile = VMAPDIR "/temp.txt";

}

int PostfixManager::Postfix_DeleteMailboxUser(std::string UserName, const char* FPath)
{
    traceCall(*this, "Postfix_DeleteMailboxUser", {UserName, FPath}, {"UserName", "FPath"});

    // Unlike the other writers: the work file is emptied first, a file that cannot be read is
    // replaced by an empty one, and empty lines stay, the one after the last line end too.
    {
        MapWriter newFile(WorkFile, MapWriter::Truncate);
        MapReader oldFile(FPath);
        std::string_view line;
        while (oldFile.nextLine(line))
            if (!contains(line, UserName))
                newFile.writeLine(line);
    }
    replaceFile(WorkFile, FPath);

    const group* const owner = getgrnam("qvadmin");
    if (owner == nullptr)
        return PostfixResult::GroupUnknown;
    [[maybe_unused]] const int ignored = chown(FPath, getuid(), owner->gr_gid);
    return PostfixResult::Done;
}
