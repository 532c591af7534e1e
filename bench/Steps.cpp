#include "Steps.h"

#include "Encrypt.h"

#include <array>
#include <cstdlib>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

void copyAndRemove(const std::string& file)
{
    static std::array<char, 131072> block;
    const std::string copy = file + ".bench";
    const int from = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    const int to = open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (from < 0 || to < 0)
        fail("to copy " + file);
    ssize_t count;
    while ((count = read(from, block.data(), block.size())) > 0)
        if (write(to, block.data(), count) != count)
            fail("to write " + copy);
    close(from);
    close(to);
    remove(copy.c_str());
}

void spawnAndWait(const std::vector<std::string>& words)
{
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    pid_t child;
    int status;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        waitpid(child, &status, 0) < 0)
        fail(words.front());
}

void readAnswer(MYSQL* connection)
{
    MYSQL_RES* const result = mysql_store_result(connection);
    while (result != nullptr && mysql_fetch_row(result) != nullptr)
        ;
    mysql_free_result(result);
}

} // namespace

Steps operator+(Steps a, const Steps& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

void run(const Steps& steps)
{
    for (const auto& step : steps)
        step();
}

Steps command(const std::string& text)
{
    return {[text] {
        if (system(text.c_str()) != 0)
            fail(text);
    }};
}

Steps backedUp(const std::string& file, const std::string& suffix)
{
    return command("cp " + file + " " + file + suffix);
}

Steps rewritten(const std::string& file)
{
    return {[file] { copyAndRemove(file); }};
}

Steps reloaded()
{
    return command("postfix reload");
}

Steps published(const std::string& file)
{
    return command("postmap " + file) + reloaded();
}

Steps hashed(int passwords)
{
    return {[passwords] {
        for (int i = 0; i < passwords; ++i) {
            std::string password = Password;
            if (Encrypt(password.data()) == nullptr)
                fail("to hash a password");
        }
    }};
}

Steps madeDirectories(const std::vector<std::string>& paths)
{
    return {[paths] {
        for (const std::string& path : paths)
            makeHome(path);
    }};
}

Steps connected(const Statements& statements)
{
    return {[statements] {
        const Connection connection = connectAsHost();
        for (const std::string& statement : statements) {
            execute(connection.get(), statement);
            readAnswer(connection.get());
        }
    }};
}

Steps ran(const std::vector<std::string>& words)
{
    return {[words] { spawnAndWait(words); }};
}
