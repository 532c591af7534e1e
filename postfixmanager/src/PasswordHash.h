#ifndef QV_PASSWORDHASH_H
#define QV_PASSWORDHASH_H

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>

// Whether this is a hash. For a password that it cannot take, crypt gives null or a token that
// begins with "*": stored, that would be an account that nobody can log in to.
inline bool isPasswordHash(const char* text)
{
    return text != nullptr && text[0] == '$';
}

// Whether a hash can be stored as it is: it will stand between colons in vshadow and between quotes
// in a statement.
inline bool isStorable(std::string_view hash)
{
    const auto isUnfit = [](unsigned char c) {
        return std::iscntrl(c) != 0 ||
               std::string_view(":'\"\\ ").find(static_cast<char>(c)) != std::string_view::npos;
    };
    return !hash.empty() && std::none_of(hash.begin(), hash.end(), isUnfit);
}

// Replaces an account record's password by its hash, unless the open transaction is given hashes
// (createMailboxWithHash). False when crypt refuses the password.
bool hashPassword(char*& password);

// The statement that stores a password's hash in the database.
inline std::string passwordUpdate(const std::string& mailbox, const std::string& hash)
{
    return "update virtual_users set password = '" + hash + "' where email = '" + mailbox + "'";
}

#endif
