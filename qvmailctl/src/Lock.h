// One command at a time: the library's work files have fixed names, so two rewrites at once would
// mix their lines.
#ifndef QVMAILCTL_LOCK_H
#define QVMAILCTL_LOCK_H

// Held while it lives, and let go of with the process in any case.
class Lock
{
public:
    // Waits some seconds for another command to end, then ends this one, naming the process.
    Lock();
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    int m_descriptor;
};

#endif
