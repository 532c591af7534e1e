// Maps and settings are regular files, or links to one. Anything else in their place does harm: a
// fifo keeps whoever opens it waiting, some devices act on being opened, others never end. A path
// is looked at before it is opened: only root could change it in between.
#ifndef QV_REGULARFILE_H
#define QV_REGULARFILE_H

#include <cerrno>
#include <string>

#include <sys/types.h>

// As open(), and closed on exec. -1 with this errno for what is no regular file.
constexpr int NotRegular = EINVAL;
int openRegular(const std::string& path, int flags, mode_t mode = 0);

// Whether the path is a link that leads nowhere, for example to a disk that is not mounted: the
// file is missing, although it was meant to be there.
bool leadsNowhere(const std::string& path);

// Whether the path leads to a fifo or a device: a command that is given it may never end.
bool mayNeverEnd(const std::string& path);

#endif
