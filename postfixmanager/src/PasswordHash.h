#ifndef QV_PASSWORDHASH_H
#define QV_PASSWORDHASH_H

// False for what crypt gives for a password that it cannot take (nothing, or a token that begins
// with "*"): stored, that would be an account that nobody can log in to.
inline bool isPasswordHash(const char* text)
{
    return text != nullptr && text[0] == '$';
}

#endif
