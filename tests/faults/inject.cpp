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
#include <map>
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

// What is counted.
enum Kind : unsigned { Changes = 1, Exchanges = 2, Reads = 4, Starts = 8, Syncs = 16 };

// Where a call names its file, and with what flags it opens it.
enum Names { Descriptor, Path, Opened, Created, Socket, Started };

struct Calls {
    unsigned kinds;
    Names names;
    int argument; // which one is the descriptor or path; flags follow the path
    std::map<unsigned long, const char*> of; // numbers and names
};

// clang-format off
#define CALL(name) {SYS_##name, #name}

const Calls Counted[] = {
    {Changes | Reads, Opened, 0, {CALL(open)}},
    {Changes | Reads, Opened, 1, {CALL(openat)}},
    {Changes, Created, 0, {CALL(creat)}},
    {Changes, Path, 0, {CALL(rename), CALL(unlink), CALL(rmdir), CALL(mkdir), CALL(link), CALL(mknod),
                        CALL(chmod), CALL(chown), CALL(lchown), CALL(truncate),
                        CALL(setxattr), CALL(lsetxattr)}},
    {Changes, Path, 1, {CALL(renameat), CALL(renameat2), CALL(unlinkat), CALL(mkdirat), CALL(linkat),
                        CALL(symlink), CALL(mknodat), CALL(fchmodat), CALL(fchownat), CALL(utimensat)}},
    {Changes, Path, 2, {CALL(symlinkat)}},
    {Changes | Exchanges, Descriptor, 0, {CALL(write), CALL(writev)}},
    {Changes | Syncs, Descriptor, 0, {CALL(fsync), CALL(fdatasync), CALL(syncfs)}},
    {Changes, Descriptor, 0, {CALL(pwrite64), CALL(pwritev), CALL(sendfile), CALL(fallocate), CALL(fchmod),
                              CALL(fchown), CALL(ftruncate), CALL(fsetxattr)}},
    {Changes, Descriptor, 2, {CALL(copy_file_range)}},
    {Exchanges | Reads, Descriptor, 0, {CALL(read), CALL(readv)}},
    {Exchanges, Socket, 0, {CALL(sendto), CALL(sendmsg), CALL(recvfrom), CALL(recvmsg)}},
    {Reads, Descriptor, 0, {CALL(pread64), CALL(preadv), CALL(getdents64)}},
    {Starts, Started, 0, {CALL(clone), CALL(clone3), CALL(fork), CALL(vfork)}},
    {Starts, Path, 0, {CALL(execve)}},
#ifdef __i386__
    {Changes, Path, 0, {CALL(truncate64), CALL(chown32), CALL(lchown32)}},
    {Changes, Path, 1, {CALL(utimensat_time64)}},
    {Changes, Descriptor, 0, {CALL(sendfile64), CALL(ftruncate64), CALL(fchown32)}},
    {Exchanges, Socket, 0, {CALL(socketcall)}},
#endif
};
// clang-format on

// In which processes, and of what kind, the calls are that are counted.
const struct Option {
    const char* name;
    unsigned kinds;
    bool inMain, inChildren;
} Options[] = {{"", Changes, true, false},
               {"--children", Changes, false, true},
               {"--sockets", Exchanges, true, false},
               {"--reads", Reads, true, false},
               {"--starts", Starts, true, true},
               {"--syncs", Syncs, true, false}};
const Option* option = Options;

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
bool counts(pid_t process, const Calls& call, const Arguments& arguments, std::string& file)
{
    const auto argument = arguments[call.argument];
    if (call.names == Started)
        return true;
    if (call.names == Socket) {
#ifdef __i386__
        return call.of.count(SYS_socketcall) == 0 ||
               (argument >= SYS_SEND && argument <= SYS_RECVFROM) || argument == SYS_SENDMSG ||
               argument == SYS_RECVMSG;
#endif
        return true;
    }
    if (call.names == Descriptor) {
        const std::string link = "fd/" + std::to_string(static_cast<int>(argument));
        file = fileOf(process, link);
        struct stat status;
        if (stat(procOf(process, link).c_str(), &status) != 0)
            return false;
        if (option->kinds == Exchanges)
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
        if (call.names == Opened &&
            (((arguments[call.argument + 1] & Writing) == 0) != (option->kinds == Reads)))
            return false;
    }
    if (option->kinds == Reads)
        return beginsWith(file, "/etc/") || beginsWith(file, "/var/");
    return !beginsWith(file, "/dev/") && !beginsWith(file, "/proc/");
}

const Calls* countedCalls(unsigned long number)
{
    for (const Calls& calls : Counted)
        if ((calls.kinds & option->kinds) != 0 && calls.of.count(number) > 0)
            return &calls;
    return nullptr;
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

struct Command {
    pid_t main;
    int how;
    long countdown; // 0 for every call
    std::set<pid_t> all{main}, failing = {};
    bool isEach = countdown == 0, isRunning = false;
    int status = 125;

    int follow()
    {
        pid_t process = main;
        int signal = 0;
        while (all.count(main) > 0 || option->inChildren) {
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
            all.erase(process);
            if (process == main)
                status = statusOf(waited);
            process = 0;
        }
        return status;
    }

    // Looks at what a process has stopped for. Returns the signal that it is to get.
    int signalFor(pid_t process, int waited)
    {
        const int signal = WSTOPSIG(waited);
        const int event = waited >> 16;
        const bool isNew = all.insert(process).second;
        isRunning = isRunning || event == PTRACE_EVENT_EXEC;
        const bool isCall = signal == (SIGTRAP | 0x80);
        if (isCall)
            lookAtCall(process);
        return event != 0 || isCall || (isNew && signal == SIGSTOP) ? 0 : signal;
    }

    void lookAtCall(pid_t process)
    {
        __ptrace_syscall_info call = {};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof call, &call) <= 0)
            return; // it is being killed
        if (call.op == PTRACE_SYSCALL_INFO_EXIT && failing.erase(process) > 0)
            ptrace(PTRACE_POKEUSER, process, ResultRegister, static_cast<long>(-how));
        const bool isMain = process == main;
        if (call.op != PTRACE_SYSCALL_INFO_ENTRY || !isRunning ||
            !(isMain ? option->inMain : option->inChildren))
            return;
        const Calls* const known = countedCalls(call.entry.nr);
        std::string file;
        if (known == nullptr || !counts(process, *known, call.entry.args, file) || --countdown > 0)
            return;
        if (countdown == 0)
            fprintf(stderr, "inject: %s %s\n", known->of.at(call.entry.nr), file.c_str());
        else if (!isEach)
            return;
        interrupt(process);
    }

    void interrupt(pid_t process)
    {
        if (how >= 0) {
            ptrace(PTRACE_POKEUSER, process, CallRegister, -1L); // no call at all
            failing.insert(process);
        } else if (how == OfAll) {
            for (const pid_t each : all)
                kill(each, SIGKILL);
        } else {
            kill(how == OfMain ? main : process, SIGKILL);
        }
    }
};

// 0 to pretend.
int meaningOf(const std::string& how)
{
    constexpr int Unknown = INT_MAX;
    if (how == "pretend")
        return 0;
    if (how == "kill")
        return OfCaller;
    if (how == "killmain")
        return OfMain;
    if (how == "killall")
        return OfAll;
    for (int error = 1; error < 134; ++error)
        if (strerrorname_np(error) != nullptr && how == strerrorname_np(error))
            return error;
    return Unknown;
}

} // namespace

int main(int argc, char** argv)
{
    for (const Option& each : Options)
        if (argc > 1 && strcmp(argv[1], each.name) == 0)
            option = &each;
    argc -= option != Options;
    argv += option != Options;
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
                   (option->inChildren ? children : 0)) != 0)
        return die(strerror(errno));
    return Command{process, how, atol(argv[2])}.follow();
}
