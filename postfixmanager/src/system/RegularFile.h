// Maps and settings are regular files, or links to one. Anything else in their place would not end
// well: a fifo keeps whoever opens it waiting, some devices act on being opened, others never end.
// Looked at before it is opened: who could change it in between is root already.
#ifndef QV_REGULARFILE_H
#define QV_REGULARFILE_H

#include <cerrno>
#include <string>

#include <sys/types.h>

// As open(), and closed on exec. -1 with this errno for what is no regular file.
constexpr int NotRegular = EINVAL;
int openRegular(const std::string& path, int flags, mode_t mode = 0);

// Whether there is a link that leads nowhere, to a disk that is not mounted say: the file is missing,
// and yet was never meant to be.
bool leadsNowhere(const std::string& path);

// Whether the path leads to a fifo or a device: a command that is given it may never end.
bool mayNeverEnd(const std::string& path);

#endif
