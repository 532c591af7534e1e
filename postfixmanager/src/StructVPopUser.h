// The account record that a host hands to mailbox creation.
#ifndef QV_STRUCTVPOPUSER_H
#define QV_STRUCTVPOPUSER_H

#include <pwd.h>
#include <shadow.h>

// The caller owns the record and everything that it points to. docs/panels.md has a record that is
// filled. With a database only sp_pwdp is read.
//
// Password  the vpasswd line to append, filled whole: pw_name and pw_gecos hold the mailbox
//           address, pw_passwd "x", pw_uid and pw_gid the ids of the account "qvadmin", pw_dir the
//           home directory "/var/spool/vmail/DOMAIN/mail/home/ADDRESS", pw_shell "/bin/false". It
//           may be a record that getpwnam returned.
// Shadow    the vshadow line to append: sp_namp the address, sp_pwdp the password in clear text in
//           a writable buffer of at least 9 bytes (hashing overwrites it, with a database too),
//           sp_expire (-1: never) and sp_flag (1: administrator, 0: ordinary user). With files, the
//           operation fills in the other fields and lets sp_pwdp point at the hash, which the next
//           hashing overwrites.
// Quota     reserved; no operation reads or writes it.
struct SvpopUser {
    struct passwd* Password;
    struct spwd* Shadow;
    char Quota[256];
};

#endif
