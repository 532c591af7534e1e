#ifndef QV_PASSWORDHASH_H
#define QV_PASSWORDHASH_H

#include <string>

// False for what crypt gives for a password that it cannot take (nothing, or a token that begins
// with "*"): stored, that would be an account that nobody can log in to.
inline bool isPasswordHash(const char* text)
{
    return text != nullptr && text[0] == '$';
}

// The statement that stores a password's hash in the tables.
inline std::string passwordUpdate(const std::string& mailbox, const std::string& hash)
{
    return "update virtual_users set password = '" + hash + "' where email = '" + mailbox + "'";
}

#endif
