#include "transaction/PasswordHashes.h"

#include "PasswordHash.h"
#include "maps/AccountFile.h"
#include "stage/SqlTransaction.h"
#include "system/Refusal.h"

#include <cctype>
#include <unordered_map>

namespace
{

using Hashes = std::vector<std::pair<std::string, std::string>>;

[[noreturn]] void refuseMissing(const std::string& address)
{
    refuse("there is no mailbox " + address);
}

void storeInTables(SqlTransaction& database, const Hashes& hashes)
{
    for (const auto& [address, hash] : hashes) {
        if (!database.holds("virtual_users", "email", address))
            refuseMissing(address);
        database.execute(passwordUpdate(address, hash));
    }
}

std::string inLowerCase(std::string_view name)
{
    std::string text(name);
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// One pass for all of them: they may be thousands.
void storeInFile(const Hashes& hashes)
{
    struct Wanted {
        std::string hash;
        bool isStored = false;
    };
    std::unordered_map<std::string, Wanted> wanted; // by name in lower case
    for (const auto& [address, hash] : hashes)
        wanted[inLowerCase(address)].hash = hash;

    Wanted* mine = nullptr;
    const auto isMine = [&](std::string_view name) {
        const auto found = wanted.find(inLowerCase(name));
        mine = found == wanted.end() ? nullptr : &found->second;
        return mine != nullptr;
    };
    rewriteAccounts(PasswordWriter, isMine, [&](std::string_view line) {
        std::optional<std::string> newLine = withPassword(line, mine->hash);
        mine->isStored = mine->isStored || newLine;
        return newLine;
    });
    for (const auto& [address, hash] : hashes)
        if (!wanted.at(inLowerCase(address)).isStored)
            refuseMissing(address);
}

} // namespace

void checkHash(const std::string& address, std::string_view hash)
{
    if (!isStorable(hash))
        refuse("the stored password of " + address +
               " is empty, or holds a colon, a quote, a backslash, a blank or a control character");
}

void stagePasswordHashes(Stage& stage, const Hashes& hashes)
{
    for (const auto& [address, hash] : hashes)
        checkHash(address, hash);
    if (stage.database)
        storeInTables(*stage.database, hashes);
    else
        storeInFile(hashes);
}
