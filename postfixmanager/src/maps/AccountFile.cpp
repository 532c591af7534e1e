#include "system/LargeFilesAndDates.h"

#include "maps/AccountFile.h"

#include "maps/MapLines.h"
#include "maps/MapRewrite.h"
#include "stage/Effects.h"
#include "stage/Stage.h"
#include "system/RegularFile.h"
#include "system/SystemAccounts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

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

FILE* openLockedForAppend(const std::string& file)
{
    Stage* const stage = openStage();
    FILE* stream = nullptr;
    // A plain call does not ask getpwnam here: the record to be written may be the one that
    // getpwnam returned to the host.
    if (stage == nullptr ? ownershipApart("root", MailReaders) : knownOwner("root", MailReaders)) {
        const std::string path = stage == nullptr ? file : stage->mapToChange(file);
        const int descriptor = openRegular(path, O_RDWR | O_CREAT, 0640);
        if (descriptor >= 0 && lockWholeFile(descriptor))
            stream = fdopen(descriptor, "a+");
        if (descriptor >= 0 && stream == nullptr)
            close(descriptor);
    }
    if (stream == nullptr && stage != nullptr)
        stage->fail(file + " cannot be opened and locked, or the account \"mail\" is missing");
    return stream;
}

void closeAppended(FILE* stream, const std::string& file, bool isWritten)
{
    Stage* const stage = openStage();
    const bool isClosed = fclose(stream) == 0;
    if (stage != nullptr && !(isWritten && isClosed))
        stage->fail(file + " cannot be added to: " + strerror(errno));
    if (isWritten)
        setOwnerAndMode(file, GroupOfMail, 0644);
}

bool rewriteAccounts(const MapVariant& variant,
                     const std::function<bool(std::string_view name)>& isMine,
                     const std::function<std::optional<std::string>(std::string_view)>& edited)
{
    bool isPicked = isMine("");
    return rewriteMap(variant, [&](std::string_view line, MapWriter& newFile) {
        if (!line.empty())
            isPicked = isMine(accountName(line));
        if (!isPicked)
            newFile.writeLine(line);
        else if (const std::optional<std::string> newLine = edited(line))
            newFile.writeLine(*newLine);
    });
}

std::optional<std::string> withPassword(std::string_view line, const std::string& hash)
{
    const std::string_view::size_type first = std::min(line.find(':'), line.size());
    const std::string_view::size_type second = line.find(':', first + 1);
    if (second == std::string_view::npos) {
        // A plain call drops the line: deliberate, hosts see it so. A transaction loses no line.
        if (Stage* const stage = openStage())
            stage->fail("the line of " + std::string(accountName(line)) +
                        " in " VSHADOWFILE " has no password field; correct it");
        return std::nullopt;
    }
    return std::string(line.substr(0, first + 1)).append(hash).append(line.substr(second));
}
