// inject [--children|--sockets|--reads|--starts|--syncs] HOW N COMMAND [ARG ...] - interrupts a command
//
// Carries out COMMAND up to the N-th system call of its main process that changes a file. That one is
// not carried out, but HOW says:
//     kill             its process is killed
//     killmain         COMMAND's main process is killed
//     killall          all processes that COMMAND has started are killed
//     ENOSPC, EIO, ... it fails so
//     pretend          it does nothing, and answers 0
// N is 0 for every such call. Other calls than those of the main process that change a file:
//     --children       those of the processes that it starts
//     --sockets        its sending and receiving on sockets
//     --reads          its opening and reading of regular files and directories below /etc and /var
//     --starts         the starting of processes and programs, by any process
//     --syncs          its fsync and the like
//
// Exit status: COMMAND's; 128 and the signal's number when it was killed; 125 when it cannot be
// followed. When the N-th call was reached, standard error has a line "inject: CALL FILE".
#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <set>
#include <string>

#include <fcntl.h>
#include <linux/net.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

#ifdef __x86_64__
constexpr std::size_t CallRegister = offsetof(user_regs_struct, orig_rax);
constexpr std::size_t ResultRegister = offsetof(user_regs_struct, rax);
#else
constexpr std::size_t CallRegister = offsetof(user_regs_struct, orig_eax);
constexpr std::size_t ResultRegister = offsetof(user_regs_struct, eax);
#endif

using Arguments = decltype(__ptrace_syscall_info::entry.args);

// Where a call names its file, and with what flags it opens it.
enum class Names { Descriptor, Path, Opened, Created, Socket, Started };

struct Call {
    unsigned long number;
    const char* name;
    Names names;
    int argument; // which one is the descriptor or path; flags follow the path
};

#define CALL(name, names, argument)                                                                \
    {                                                                                              \
        SYS_##name, #name, Names::names, argument                                                  \
    }

// clang-format off
const Call Changes[] = {
    CALL(open, Opened, 0), CALL(openat, Opened, 1), CALL(creat, Created, 0),
    CALL(write, Descriptor, 0), CALL(writev, Descriptor, 0), CALL(pwrite64, Descriptor, 0), CALL(pwritev, Descriptor, 0),
    CALL(sendfile, Descriptor, 0), CALL(copy_file_range, Descriptor, 2), CALL(fallocate, Descriptor, 0),
    CALL(rename, Path, 0), CALL(renameat, Path, 1), CALL(renameat2, Path, 1),
    CALL(unlink, Path, 0), CALL(unlinkat, Path, 1), CALL(rmdir, Path, 0), CALL(mkdir, Path, 0), CALL(mkdirat, Path, 1),
    CALL(link, Path, 0), CALL(linkat, Path, 1), CALL(symlink, Path, 1), CALL(symlinkat, Path, 2),
    CALL(mknod, Path, 0), CALL(mknodat, Path, 1),
    CALL(chmod, Path, 0), CALL(fchmodat, Path, 1), CALL(fchmod, Descriptor, 0),
    CALL(chown, Path, 0), CALL(lchown, Path, 0), CALL(fchownat, Path, 1), CALL(fchown, Descriptor, 0),
    CALL(truncate, Path, 0), CALL(ftruncate, Descriptor, 0),
    CALL(fsync, Descriptor, 0), CALL(fdatasync, Descriptor, 0), CALL(syncfs, Descriptor, 0),
    CALL(setxattr, Path, 0), CALL(lsetxattr, Path, 0), CALL(fsetxattr, Descriptor, 0), CALL(utimensat, Path, 1),
#ifdef __i386__
    CALL(sendfile64, Descriptor, 0), CALL(truncate64, Path, 0), CALL(ftruncate64, Descriptor, 0),
    CALL(chown32, Path, 0), CALL(lchown32, Path, 0), CALL(fchown32, Descriptor, 0), CALL(utimensat_time64, Path, 1),
#endif
};
const Call Exchanges[] = {
    CALL(write, Descriptor, 0), CALL(writev, Descriptor, 0), CALL(sendto, Socket, 0), CALL(sendmsg, Socket, 0),
    CALL(read, Descriptor, 0), CALL(readv, Descriptor, 0), CALL(recvfrom, Socket, 0), CALL(recvmsg, Socket, 0),
#ifdef __i386__
    CALL(socketcall, Socket, 0),
#endif
};
const Call Reads[] = {
    CALL(open, Opened, 0), CALL(openat, Opened, 1), CALL(read, Descriptor, 0), CALL(readv, Descriptor, 0),
    CALL(pread64, Descriptor, 0), CALL(preadv, Descriptor, 0), CALL(getdents64, Descriptor, 0),
};
const Call Starts[] = {
    CALL(clone, Started, 0), CALL(clone3, Started, 0), CALL(fork, Started, 0), CALL(vfork, Started, 0),
    CALL(execve, Path, 0),
};
const Call Syncs[] = {
    CALL(fsync, Descriptor, 0), CALL(fdatasync, Descriptor, 0), CALL(syncfs, Descriptor, 0),
};
// clang-format on

enum class Mode { Changes, Children, Exchanges, Reads, Starts, Syncs };
constexpr const char* Options[] = {"", "--children", "--sockets", "--reads", "--starts", "--syncs"};
Mode mode = Mode::Changes;

bool beginsWith(const std::string& text, const char* start)
{
    return text.compare(0, strlen(start), start) == 0;
}

std::string procOf(pid_t process, const std::string& entry)
{
    return "/proc/" + std::to_string(process) + "/" + entry;
}

std::string textAt(pid_t process, unsigned long long address)
{
    const int memory = open(procOf(process, "mem").c_str(), O_RDONLY | O_CLOEXEC);
    std::string text(PATH_MAX, '\0');
    // Short where the readable memory ends.
    const ssize_t count = pread(memory, text.data(), text.size(), static_cast<off_t>(address));
    close(memory);
    return text.substr(0, std::min<std::size_t>(text.find('\0'), std::max<ssize_t>(count, 0)));
}

std::string fileOf(pid_t process, const std::string& link)
{
    char target[PATH_MAX];
    const ssize_t length = readlink(procOf(process, link).c_str(), target, sizeof target);
    return std::string(target, length < 0 ? 0 : length);
}

// Whether the call is one of those that are counted; says which file it is about.
bool counts(pid_t process, const Call& call, const Arguments& arguments, std::string& file)
{
    const auto argument = arguments[call.argument];
    if (call.names == Names::Started)
        return true;
    if (call.names == Names::Socket) {
#ifdef __i386__
        return call.number != SYS_socketcall ||
               (argument >= SYS_SEND && argument <= SYS_RECVFROM) || argument == SYS_SENDMSG ||
               argument == SYS_RECVMSG;
#endif
        return true;
    }
    if (call.names == Names::Descriptor) {
        const std::string link = "fd/" + std::to_string(static_cast<int>(argument));
        file = fileOf(process, link);
        struct stat status;
        if (stat(procOf(process, link).c_str(), &status) != 0)
            return false;
        if (mode == Mode::Exchanges)
            return S_ISSOCK(status.st_mode);
        if ((!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) || beginsWith(file, "/memfd:"))
            return false;
    } else {
        file = textAt(process, argument);
        if (!beginsWith(file, "/")) {
            const int directory = call.argument == 0 ? AT_FDCWD : static_cast<int>(arguments[0]);
            const std::string link = "fd/" + std::to_string(directory);
            file.insert(0, fileOf(process, directory == AT_FDCWD ? "cwd" : link) + "/");
        }
        constexpr unsigned long long Writing = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC;
        if (call.names == Names::Opened &&
            (((arguments[call.argument + 1] & Writing) == 0) != (mode == Mode::Reads)))
            return false;
    }
    if (mode == Mode::Reads)
        return beginsWith(file, "/etc/") || beginsWith(file, "/var/");
    return !beginsWith(file, "/dev/") && !beginsWith(file, "/proc/");
}

template <std::size_t Size> const Call* find(const Call (&calls)[Size], unsigned long number)
{
    const auto* const call = std::find_if(std::begin(calls), std::end(calls),
                                          [&](const Call& each) { return each.number == number; });
    return call == std::end(calls) ? nullptr : call;
}

const Call* countedCall(unsigned long number)
{
    switch (mode) {
    case Mode::Exchanges:
        return find(Exchanges, number);
    case Mode::Reads:
        return find(Reads, number);
    case Mode::Starts:
        return find(Starts, number);
    case Mode::Syncs:
        return find(Syncs, number);
    default:
        return find(Changes, number);
    }
}

int die(const std::string& why)
{
    fprintf(stderr, "inject: cannot go on: %s\n", why.c_str());
    return 125;
}

int statusOf(int waited)
{
    return WIFEXITED(waited) ? WEXITSTATUS(waited) : 128 + WTERMSIG(waited);
}

// What becomes of the call, where that is no error.
enum Death { OfCaller = -1, OfMain = -2, OfAll = -3 };

class Command
{
public:
    Command(pid_t main, int how, long countdown)
        : m_main(main), m_how(how), m_countdown(countdown), m_all{main}
    {
    }

    int follow()
    {
        pid_t process = m_main;
        int signal = 0;
        while (m_all.count(m_main) > 0 || followsChildren()) {
            if (process != 0 && ptrace(PTRACE_SYSCALL, process, nullptr, signal) != 0 &&
                errno != ESRCH)
                return die(strerror(errno));
            int waited = 0;
            process = waitpid(-1, &waited, __WALL);
            if (process < 0)
                break; // the last one has ended
            signal = 0;
            if (WIFSTOPPED(waited)) {
                signal = signalFor(process, waited);
                continue;
            }
            m_all.erase(process);
            if (process == m_main)
                m_status = statusOf(waited);
            process = 0;
        }
        return m_status;
    }

    static bool followsChildren() { return mode == Mode::Children || mode == Mode::Starts; }

private:
    // Looks at what a process has stopped for. Returns the signal that it is to get.
    int signalFor(pid_t process, int waited)
    {
        const int signal = WSTOPSIG(waited);
        const bool isNew = m_all.insert(process).second;
        if (waited >> 16 == PTRACE_EVENT_EXEC)
            m_isRunning = true;
        if (signal == (SIGTRAP | 0x80))
            lookAtCall(process);
        return waited >> 16 != 0 || signal == (SIGTRAP | 0x80) || (isNew && signal == SIGSTOP)
                   ? 0
                   : signal;
    }

    void lookAtCall(pid_t process)
    {
        __ptrace_syscall_info call = {};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof call, &call) <= 0)
            return; // it is being killed
        if (call.op == PTRACE_SYSCALL_INFO_EXIT && m_failing.erase(process) > 0)
            ptrace(PTRACE_POKEUSER, process, ResultRegister, static_cast<long>(-m_how));
        const bool isMain = process == m_main;
        if (call.op != PTRACE_SYSCALL_INFO_ENTRY || !m_isRunning ||
            (isMain ? mode == Mode::Children : !followsChildren()))
            return;
        const Call* const known = countedCall(call.entry.nr);
        std::string file;
        if (known == nullptr || !counts(process, *known, call.entry.args, file) ||
            --m_countdown > 0)
            return;
        if (m_countdown == 0)
            fprintf(stderr, "inject: %s %s\n", known->name, file.c_str());
        else if (!m_isEach)
            return;
        interrupt(process);
    }

    void interrupt(pid_t process)
    {
        if (m_how >= 0) {
            ptrace(PTRACE_POKEUSER, process, CallRegister, -1L); // no call at all
            m_failing.insert(process);
        } else if (m_how == OfAll) {
            for (const pid_t each : m_all)
                kill(each, SIGKILL);
        } else {
            kill(m_how == OfMain ? m_main : process, SIGKILL);
        }
    }

    pid_t m_main;
    int m_how;
    long m_countdown;
    bool m_isEach = m_countdown == 0;
    bool m_isRunning = false;
    int m_status = 125;
    std::set<pid_t> m_all, m_failing;
};

// 0 to pretend.
int meaningOf(const std::string& how)
{
    constexpr int Unknown = INT_MAX;
    if (how == "pretend")
        return 0;
    if (beginsWith(how, "kill"))
        return how == "kill"       ? OfCaller
               : how == "killmain" ? OfMain
               : how == "killall"  ? OfAll
                                   : Unknown;
    for (int error = 1; error < 134; ++error)
        if (strerrorname_np(error) != nullptr && how == strerrorname_np(error))
            return error;
    return Unknown;
}

} // namespace

int main(int argc, char** argv)
{
    const auto* const option =
        std::find(std::begin(Options), std::end(Options), std::string(argc > 1 ? argv[1] : ""));
    if (option != std::end(Options)) {
        mode = static_cast<Mode>(option - Options);
        ++argv;
        --argc;
    }
    const int how = meaningOf(argc > 3 ? argv[1] : "");
    if (how == INT_MAX)
        return die("usage: inject [--children|--sockets|--reads|--starts|--syncs] HOW N COMMAND "
                   "[ARG ...]");

    const pid_t process = fork();
    if (process == 0) {
        ptrace(PTRACE_TRACEME);
        raise(SIGSTOP);
        execvp(argv[3], argv + 3);
        _exit(die(std::string(argv[3]) + ": " + strerror(errno)));
    }
    const int children = PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE;
    int waited = 0;
    if (process < 0 || waitpid(process, &waited, 0) < 0 ||
        ptrace(PTRACE_SETOPTIONS, process, nullptr,
               PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL |
                   (Command::followsChildren() ? children : 0)) != 0)
        return die(strerror(errno));
    return Command(process, how, atol(argv[2])).follow();
}
