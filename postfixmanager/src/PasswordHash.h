#ifndef QV_PASSWORDHASH_H
#define QV_PASSWORDHASH_H

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>

// False for what crypt gives for a password that it cannot take (nothing, or a token that begins
// with "*"): stored, that would be an account that nobody can log in to.
inline bool isPasswordHash(const char* text)
{
    return text != nullptr && text[0] == '$';
}

// Whether a hash can be stored as it is given: it stands between colons in vshadow and between quotes
// in a statement.
inline bool isStorable(std::string_view hash)
{
    const auto isUnfit = [](unsigned char c) {
        return std::iscntrl(c) != 0 ||
               std::string_view(":'\"\\ ").find(static_cast<char>(c)) != std::string_view::npos;
    };
    return !hash.empty() && std::none_of(hash.begin(), hash.end(), isUnfit);
}

// Puts its hash in the place of an account record's password; in a transaction that is given hashes
// it is there already. False when crypt refuses the password.
bool hashPassword(char*& password);

// The statement that stores a password's hash in the tables.
inline std::string passwordUpdate(const std::string& mailbox, const std::string& hash)
{
    return "update virtual_users set password = '" + hash + "' where email = '" + mailbox + "'";
}

#endif
