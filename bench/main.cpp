// bench_operations WORLD ACCOUNTS list                      what is measured in this world, as JSON
// bench_operations WORLD ACCOUNTS populate                  makes the world
// bench_operations WORLD ACCOUNTS restore
// bench_operations WORLD ACCOUNTS run OPERATION [SIDE]      the operation, or what it is compared with
// bench_operations WORLD ACCOUNTS timed INPUT COMMAND ...   a command
//
// WORLD is files, mysql, mysql-aliases or mysql-unlimited. "run" and "timed" print the time in
// seconds and the memory in KiB: of the process before, its own peak, and the largest peak of a
// command that it ran. An operation that changes something finds the world restored; a command does
// not.

#include "Operations.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using Json = nlohmann::json;

Operations allOperations(const World& world)
{
    Operations all = libraryOperations(world);
    for (const auto part : {transactions, commandOperations})
        for (Operation& operation : part(world))
            all.push_back(std::move(operation));
    return all;
}

const Sides& sidesOf(const World& world, const Operation& operation)
{
    return world.usesDatabase ? operation.inDatabase : operation.onFiles;
}

Json list(const World& world)
{
    Json rows = Json::array();
    for (const Operation& operation : allOperations(world)) {
        Json sides = Json::array();
        for (const Side& side : sidesOf(world, operation))
            sides.push_back(side.name);
        if (!sides.empty())
            rows.push_back({{"kind", operation.kind}, {"name", operation.name}, {"sides", sides}});
    }
    return rows;
}

// The output of what is measured goes to a file, not to /dev/null: grep would then stop at the
// first match.
int turnOutputAside()
{
    const int output = dup(STDOUT_FILENO);
    const int aside = open("/run/bench-output", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (output < 0 || dup2(aside, STDOUT_FILENO) < 0)
        fail("to turn the output aside");
    return output;
}

// The peak of this program's memory in KiB. getrusage() would also count the process that started
// it.
long ownPeak()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stol(line.substr(strlen("VmHWM:")));
    fail("to read /proc/self/status");
}

void forgetPeak()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

long commandsPeak()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_maxrss;
}

double secondsOf(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

Json measure(const std::function<void()>& work)
{
    forgetPeak();
    const long before = ownPeak();
    const double seconds = secondsOf(work);
    return {{"seconds", seconds},
            {"before", before},
            {"peak", ownPeak()},
            {"commands", commandsPeak()}};
}

const Operation& find(const Operations& operations, const std::string& name)
{
    const auto found = std::find_if(operations.begin(), operations.end(),
                                    [&](const Operation& o) { return o.name == name; });
    if (found == operations.end())
        fail("to find " + name);
    return *found;
}

Json runSide(const World& world, const std::string& name, const char* side)
{
    const Operations operations = allOperations(world);
    const Operation& operation = find(operations, name);
    if (strcmp(operation.kind, "query") != 0 && strcmp(operation.kind, "command") != 0)
        world.restore();
    // In a host that has been running for some time these are set up already.
    mysql_library_init(0, nullptr, nullptr);
    getpwnam("qvadmin");

    if (side == nullptr) {
        CQVTrackManager tracing;
        PostfixManager manager = world.manager(tracing);
        manager.ErrNo = 0;
        return measure([&] { operation.run(manager); });
    }
    for (const Side& one : sidesOf(world, operation))
        if (strcmp(one.name, side) == 0)
            return measure([&] { run(one.steps); });
    fail("to find the side " + std::string(side));
}

Json timed(char** words)
{
    const int input = open(words[0], O_RDONLY | O_CLOEXEC);
    if (input < 0)
        fail(words[0]);
    int status = 0;
    Json result = measure([&] {
        const pid_t child = fork();
        if (child == 0) {
            dup2(input, STDIN_FILENO);
            dup2(STDOUT_FILENO, STDERR_FILENO);
            execvp(words[1], words + 1);
            _exit(127);
        }
        waitpid(child, &status, 0);
    });
    result["status"] = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

Json perform(const World& world, int argc, char** argv)
{
    const std::string mode = argc > 3 ? argv[3] : "";
    if (mode == "list")
        return list(world);
    if (mode == "populate")
        world.populate();
    else if (mode == "restore")
        world.restore();
    else if (mode == "run" && argc > 4)
        return runSide(world, argv[4], argv[5]);
    else if (mode == "timed" && argc > 5)
        return timed(argv + 4);
    else
        fail("usage: bench_operations WORLD ACCOUNTS list|populate|restore|run|timed ...");
    return nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    const int output = turnOutputAside();
    if (argc < 3)
        return 2;
    try {
        const Json answer = perform(World(argv[1], std::stoi(argv[2])), argc, argv);
        dprintf(output, "%s\n", answer.dump().c_str());
    } catch (const std::exception& problem) {
        fail(problem.what());
    }
}
