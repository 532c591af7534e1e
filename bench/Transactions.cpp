#include "Operations.h"

#include "PostfixTransaction.h"

#include <cstdio>
#include <fstream>

#include <fcntl.h>
#include <unistd.h>

namespace
{

using LineOf = std::function<std::string(const std::string& address)>;

// Writes the map once with a further line for each mailbox, syncs it and renames it into its place.
Steps extended(const World& world, const char* map, int mailboxes, const LineOf& lineOf)
{
    return {[=] {
        const std::string staged = std::string(map) + ".bench";
        {
            std::ofstream out(staged);
            out << std::ifstream(map).rdbuf();
            for (int i = 0; i < mailboxes; ++i)
                out << lineOf(newUser(i) + "@" + world.domain) << '\n';
            if (!out.flush())
                fail("to write " + staged);
        }
        const int file = open(staged.c_str(), O_WRONLY | O_CLOEXEC);
        if (fsync(file) != 0 || close(file) != 0 || rename(staged.c_str(), map) != 0)
            fail("to sync " + staged);
    }};
}

// Long texts are made when the step runs: each measurement holds the steps of all operations.
Steps madeHomes(const World& world, int mailboxes)
{
    return {[=] {
        for (int i = 0; i < mailboxes; ++i)
            run(madeDirectories({world.homeOf(newUser(i) + "@" + world.domain)}));
    }};
}

Steps filesFloor(const World& world, int mailboxes)
{
    const std::string domain = world.domain;
    return hashed(mailboxes) +
           extended(world, VPASSWDFILE, mailboxes,
                    [=](const std::string& address) { return passwdLine(domain, address); }) +
           extended(world, VSHADOWFILE, mailboxes, shadowLine) +
           extended(world, VMAPSFILE, mailboxes,
                    [=](const std::string& address) { return mapLine(domain, address); }) +
           extended(world, VQUOTAFILE, mailboxes, quotaLine) + madeHomes(world, mailboxes) +
           command("postmap " VMAPSFILE) + command("postmap " VQUOTAFILE) + reloaded();
}

Steps databaseFloor(const World& world, int mailboxes)
{
    const Steps rows = {[=] {
        const Connection connection = connectAsHost();
        execute(connection.get(), "start transaction");
        for (int i = 0; i < mailboxes; ++i) {
            const std::string address = newUser(i) + "@" + world.domain;
            for (const std::string& statement : insertions(address))
                execute(connection.get(), statement);
        }
        execute(connection.get(), "commit");
    }};
    return hashed(mailboxes) + madeHomes(world, mailboxes) + rows;
}

} // namespace

Operations transactions(const World& world)
{
    Operations all;
    for (const int mailboxes : {1, 1000, 10000}) {
        const auto run = [=](PostfixManager& manager) {
            PostfixTransaction transaction(manager);
            expect(transaction.open(0) == PostfixTransaction::Done, transaction.reason());
            for (int i = 0; i < mailboxes; ++i)
                createMailbox(manager, world, i);
            expect(transaction.commit() == PostfixTransaction::Done, transaction.reason());
        };
        const std::string number = std::to_string(mailboxes);
        all.push_back({"transaction",
                       "transaction of " + number + (mailboxes == 1 ? " mailbox" : " mailboxes"),
                       run,
                       {{"floor", filesFloor(world, mailboxes)}},
                       {{"floor", databaseFloor(world, mailboxes)}}});
    }
    return all;
}
