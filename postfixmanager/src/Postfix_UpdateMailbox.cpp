#include "Backend.h"
#include "CallTrace.h"
#include "PasswordHash.h"
#include "maps/AccountFile.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"
#include "stage/Effects.h"
#include "system/SystemAccounts.h"

#include <iostream>

#include <grp.h>

namespace
{

constexpr std::size_t PasswordBufferSize = 256; // a longer password is refused, not cut

// Nothing when the password cannot be hashed.
std::optional<std::string> hashOf(const std::string& password)
{
    if (password.size() >= PasswordBufferSize)
        return std::nullopt;
    char buffer[PasswordBufferSize] = {};
    password.copy(buffer, password.size());
    const char* const hash = Encrypt(buffer);
    if (!isPasswordHash(hash))
        return std::nullopt;
    return hash;
}

int updatePassword(PostfixManager& manager, const std::string& mailbox, const std::string& password)
{
    // Tried before anything is written: a password that cannot be hashed must change no line.
    if (!hashOf(password))
        return PostfixResult::Failed;

    std::cout << "cp" << std::endl;
    if (!MapReader(VSHADOWFILE).isOpen())
        return PostfixResult::Failed;
    std::cout << "cp1" << std::endl;
    rewriteAccounts(
        PasswordWriter, [&](std::string_view name) { return equalIgnoringCase(name, mailbox); },
        [&](std::string_view line) {
            // A fresh salt for each line.
            std::optional<std::string> newLine = withPassword(line, *hashOf(password));
            if (newLine)
                std::cout << *newLine << std::endl;
            return newLine;
        });
    manager.ErrNo = PostfixResult::Updated;
    reloadPostfix();
    return manager.ErrNo;
}

// The line with another gid, its fourth field. A colon at the very start does not count.
std::string withGroup(std::string_view line, const std::string& gid)
{
    if (line.empty())
        return gid;
    std::string_view::size_type colons[4];
    std::string_view::size_type from = 1;
    for (std::string_view::size_type& colon : colons) {
        colon = line.find(':', from);
        if (colon == std::string_view::npos)
            return std::string(line);
        from = colon + 1;
    }
    return std::string(line.substr(0, colons[2] + 1)).append(gid).append(line.substr(colons[3]));
}

// The line with another flag, its last field.
std::string withFlag(std::string_view line, const std::string& flag)
{
    const std::string_view::size_type colon = line.rfind(':');
    if (colon == std::string_view::npos)
        return line.empty() ? flag : std::string(line);
    return std::string(line.substr(0, colon + 1)).append(flag);
}

int updateUserType(PostfixManager& manager, const std::string& mailbox, bool isAdmin)
{
    const group* const system = getgrnam(isAdmin ? MailReaders : MailOwner);
    if (system == nullptr)
        return PostfixResult::Failed;
    const std::string gid = std::to_string(system->gr_gid);
    const std::string flag = isAdmin ? "1" : "0";

    // The text may stand anywhere in the name: deliberate, hosts rely on it. A password's change
    // takes the whole name.
    const auto isMine = [&](std::string_view name) { return standsFor(name, name, mailbox); };
    if (!rewriteAccounts(UserTypeWriter, isMine,
                         [&](std::string_view line) { return withGroup(line, gid); }))
        return PostfixResult::Failed;
    if (!rewriteAccounts(PasswordWriter, isMine,
                         [&](std::string_view line) { return withFlag(line, flag); }))
        return PostfixResult::Failed;
    manager.ErrNo = PostfixResult::Updated;
    reloadPostfix();
    return manager.ErrNo;
}

int updateInDatabase(const PostfixManager& manager, const std::string& mailbox,
                     const std::string& value, const std::string& action)
{
    std::cout << "mysql is used" << std::endl;
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::Failed;

    if (action != "UpdatePasswd") {
        // The database keeps no user types: a success without a change.
        sql.leaveOpen();
        return PostfixResult::Updated;
    }
    std::cout << "UpdatePasswd" << std::endl;
    const std::optional<std::string> hash = hashOf(value);
    if (!hash || !sql.execute(passwordUpdate(mailbox, *hash)))
        return PostfixResult::Failed;
    return PostfixResult::Updated;
}

} // namespace

int PostfixManager::Postfix_UpdateMailbox(std::string Mailbox, std::string Value,
                                          std::string Action)
{
    std::cout << "PostfixManager::Postfix_UpdateMailbox" << std::endl;
    traceCall(*this, "Postfix_UpdateMailbox", {Mailbox, Value, Action},
              {"Mailbox", "Value", "Action"});

    if (usesSql(*this))
        return updateInDatabase(*this, Mailbox, Value, Action);
    if (Action == "UpdatePasswd")
        return updatePassword(*this, Mailbox, Value);
    if (Action == "UpdateUserType")
        return updateUserType(*this, Mailbox, Value == "admin");

    // Any other action changes nothing, yet reloads, and answers with what an earlier call left.
    reloadPostfix();
    return ErrNo;
}
