#ifndef QV_ENCRYPT_H
#define QV_ENCRYPT_H

#include "Export.h"

// Encrypt - hash a clear-text password with a fresh random salt
//
// Passwd   a zero-terminated password in a writable buffer of at least 9 bytes. On return the
//          buffer holds the eight salt characters: the clear text is gone from it.
// Returns  "$1$" salt "$" hash (MD5-crypt) in the static buffer of crypt(3). Copy it before the
//          next call of crypt or Encrypt; do not free it. A password that crypt cannot take (longer
//          than 511 bytes) gives crypt's failure token, which begins with "*".
//
// Reseeds the process-wide random(3) generator. Not thread-safe.
QV_EXPORT char* Encrypt(char* Passwd);

#endif
