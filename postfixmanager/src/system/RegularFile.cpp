#include "system/LargeFilesAndDates.h"

#include "system/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace
{

// The type of what the path leads to; 0 when that is nothing.
mode_t typeOf(const std::string& path)
{
    struct stat entry {
    };
    return stat(path.c_str(), &entry) == 0 ? entry.st_mode & S_IFMT : 0;
}

} // namespace

int openRegular(const std::string& path, int flags, mode_t mode)
{
    const mode_t type = typeOf(path);
    if (type == 0 || type == S_IFREG)
        return open(path.c_str(), flags | O_CLOEXEC, mode);
    errno = NotRegular;
    return -1;
}

bool leadsNowhere(const std::string& path)
{
    struct stat entry {
    };
    return lstat(path.c_str(), &entry) == 0 && S_ISLNK(entry.st_mode) && typeOf(path) == 0;
}

bool mayNeverEnd(const std::string& path)
{
    const mode_t type = typeOf(path);
    return type == S_IFIFO || type == S_IFCHR || type == S_IFBLK;
}
