#include "world.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <spawn.h>
#include <unistd.h>

namespace fs = std::filesystem;

static int messages = STDERR_FILENO; // libFuzzer closes the other one

// These stand before the C library's. postmap makes an empty table, all other commands do nothing,
// and no server is asked for its settings. What is on disk is not the matter here.
extern "C" {
__attribute__((visibility("default"))) int system(const char* command)
{
    const std::string text = command;
    const std::string postmap = "postmap ";
    if (text.compare(0, postmap.size(), postmap) == 0)
        put(text.substr(postmap.size(), text.find(' ', postmap.size()) - postmap.size()) + ".db",
            "");
    return 0;
}

__attribute__((visibility("default"))) int posix_spawnp(pid_t*, const char*,
                                                        const posix_spawn_file_actions_t*,
                                                        const posix_spawnattr_t*, char* const[],
                                                        char* const[])
{
    return ENOENT;
}

__attribute__((visibility("default"))) int fsync(int)
{
    return 0;
}

__attribute__((visibility("default"))) int LLVMFuzzerInitialize(int*, char***)
{
    FILE* const inside =
        popen(SCRIPTS "/private-world --inside", "r"); // system() does nothing here
    if (inside == nullptr || pclose(inside) != 0)
        std::exit(1);
    messages = dup(STDERR_FILENO);
    std::cout.rdbuf(nullptr);
    return 0;
}
}

void emptyWorld()
{
    for (const char* const path : {VMAPDIR, VSPOOLDIR, VDOMAINFILE "-transaction", QVCONFFILE})
        fs::remove_all(path);
    fs::create_directory(VMAPDIR);
    fs::create_directory(VSPOOLDIR);
    for (const char* const map :
         {VDOMAINFILE, VPASSWDFILE, VSHADOWFILE, VMAPSFILE, VALIASFILE, VQUOTAFILE})
        put(map, "");
}

void put(const std::string& path, std::string_view content)
{
    std::ofstream(path, std::ios::binary) << content;
}

std::string get(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> linesOf(std::string_view text)
{
    std::vector<std::string> lines;
    for (; !text.empty(); text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1))
        if (text.front() != '\n')
            lines.emplace_back(textBefore(text, '\n'));
    return lines;
}

void require(bool isTrue, const std::string& what)
{
    if (isTrue)
        return;
    const std::string line = "fell: " + what + "\n";
    if (write(messages, line.data(), line.size()) > 0)
        std::abort();
}
