#include "LargeFilesAndDates.h"

#include "AccountFile.h"
#include "SystemAccounts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

bool lockWholeFile(int descriptor)
{
    struct flock lock {
    };
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 0;
    return fcntl(descriptor, F_SETLKW, &lock) == 0;
}

} // namespace

FILE* openLockedForAppend(const char* file)
{
    if (!ownershipOf("root", "mail"))
        return nullptr;

    const int descriptor = open(file, O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    if (descriptor < 0)
        return nullptr;
    FILE* const stream = lockWholeFile(descriptor) ? fdopen(descriptor, "a+") : nullptr;
    if (stream == nullptr)
        close(descriptor);
    return stream;
}

void settleAccountFile(const char* file)
{
    giveTo(file, "root", "mail");
    chmod(file, 0644);
}
