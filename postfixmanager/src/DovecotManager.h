#ifndef QV_DOVECOTMANAGER_H
#define QV_DOVECOTMANAGER_H

#include "Export.h"

#include <string>

// DovecotManager - the delivery agent's quota fields in /etc/vmail/vpasswd
//
// Where Dovecot delivers mail, it reads its users from vpasswd. The line of a mailbox with a quota
// carries more behind its seven fields: ":userdb_mail=mbox:HOME userdb_quota_rule=*:storage=QUOTA"
// and "B", the unit. Each operation finds the first line whose name is the mailbox (whole name, any
// letter case), rewrites that line and leaves every other as it is, but for empty lines: those
// before the mailbox's line are dropped, and one is added at the end of a file that ends in a line
// feed.
//
// mailbox  the mailbox's address.
// quota    a number of bytes, without unit, as text. It is written unchecked: Dovecot refuses a
//          negative number ("-1"); "0" is no limit for it.
//
// All three return
//   0  the line was found and the file replaced; where the new file could not be written whole, the
//      old one stays, and this is not detected
//   1  the work file or vpasswd could not be opened; nothing was replaced
//   2  no line belongs to the mailbox; vpasswd is as it was
//
// Files: vpasswd is first copied to vpasswd + ".addbak", ".delbak" or ".editbak", and written anew
// through vpasswd + ".addtmp", ".deltmp" or ".edittmp". The new file gets no owner or mode of its
// own: it has what the calling process gives it (mind the umask). No lock is taken.
class QV_EXPORT DovecotManager
{
public:
    // Neither does anything; each operation reads the file afresh.
    DovecotManager();
    ~DovecotManager();

    // Adds the fields to the mailbox's line, with homeDir as its mail home, without looking for
    // fields that it already has. Prints "quota entry =" and the new line to standard output.
    int addDovecotQuota(std::string mailbox, std::string homeDir, std::string quota);

    // Cuts the mailbox's line back to its first seven fields; empty fields do not count and vanish.
    // A line of fewer than seven is written back as it is.
    int deleteDovecotQuota(std::string mailbox);

    // Sets the quota of a line that has the fields; adds the fields to a plain line of seven, with
    // the line's own home directory and the shell "/bin/false". Any other line, such as one with an
    // empty comment field, is written back as it is, and that counts as found.
    int editDovecotQuota(std::string mailbox, std::string quota);
};

#endif
