// How each operation rewrites its map. The procedure is the same (MapRewrite.h); the differences
// are the fields below. CONTRIBUTING.md says who must be told of another work file.
#ifndef QV_MAPVARIANTS_H
#define QV_MAPVARIANTS_H

#include "MapFiles.h"

#include <sys/types.h>

// How the work file is opened. One that an interrupted run left over keeps its lines, which end up
// at the head of the new map, or loses them.
enum WorkFileUse { Appended, Emptied };

// Who owns the new map.
enum NewOwner {
    GroupOfMail,      // "root" and the primary group of the account "mail"
    GroupOfQvadmin,   // "root" and the primary group of the account "qvadmin"
    CallerAndQvadmin, // the calling user and the group "qvadmin"
    OwnerAsCreated,   // stays as the work file was created
};
constexpr mode_t ModeAsCreated = 0;

// What the operation runs after the change: "postmap FILE" when Postfix reads the map through a
// lookup table, and "postfix reload".
enum Publish { PublishNothing, ReloadOnly, PostmapAndReload };

// What a rewrite does when there is no old map.
enum OldMap { FailsWithout, StartsEmpty };

struct MapVariant {
    const char* map;          // null: the call names it
    const char* backupSuffix; // of the copy made beforehand; null: no copy
    const char* workFile;     // becomes the new map
    WorkFileUse opened;
    NewOwner owner;
    mode_t mode;
    Publish publish;
    OldMap oldMap;
};

constexpr const char* Backup = ".qvbackup";

// clang-format off
inline constexpr MapVariant DomainListWriter =
    {VDOMAINFILE, Backup, VDOMAINFILE "-temp.txt", Appended, OwnerAsCreated, ModeAsCreated, PublishNothing, FailsWithout};
inline constexpr MapVariant MailboxMapWriter =
    {VMAPSFILE, Backup, VMAPDIR "/vmaps-temp.txt", Appended, GroupOfMail, 0644, PostmapAndReload, FailsWithout};
inline constexpr MapVariant CatchAllWriter =
    {VMAPSFILE, ".CABackup", VMAPDIR "/vmaps-temp.txt", Appended, GroupOfQvadmin, 0644, PostmapAndReload, FailsWithout};
inline constexpr MapVariant QuotaMapWriter =
    {VQUOTAFILE, Backup, VMAPDIR "/vquota-temp.txt", Appended, GroupOfMail, 0644, PostmapAndReload, FailsWithout};
inline constexpr MapVariant AliasMapWriter =
    {VALIASFILE, Backup, VMAPDIR "/valias-temp.txt", Appended, GroupOfMail, 0644, PostmapAndReload, FailsWithout};
inline constexpr MapVariant DomainAliasesWriter =
    {VALIASFILE, nullptr, VMAPDIR "/valias-temp.txt", Appended, GroupOfQvadmin, ModeAsCreated, PostmapAndReload, FailsWithout};
inline constexpr MapVariant DomainMailboxesWriter =
    {nullptr, nullptr, VMAPDIR "/temp.txt", Appended, GroupOfQvadmin, 0644, PublishNothing, FailsWithout};
inline constexpr MapVariant MailboxLinesWriter =
    {nullptr, nullptr, VMAPDIR "/temp.txt", Emptied, CallerAndQvadmin, ModeAsCreated, PublishNothing, StartsEmpty};
inline constexpr MapVariant UserTypeWriter =
    {VPASSWDFILE, nullptr, VMAPDIR "/vpasswd_temp.txt", Appended, GroupOfQvadmin, 0644, ReloadOnly, FailsWithout};
inline constexpr MapVariant PasswordWriter =
    {VSHADOWFILE, nullptr, VMAPDIR "/vshadow_temp.txt", Appended, GroupOfQvadmin, 0644, ReloadOnly, FailsWithout};
inline constexpr MapVariant QuotaFieldsAdder =
    {VPASSWDFILE, ".addbak", VPASSWDFILE ".addtmp", Emptied, OwnerAsCreated, ModeAsCreated, PublishNothing, FailsWithout};
inline constexpr MapVariant QuotaFieldsRemover =
    {VPASSWDFILE, ".delbak", VPASSWDFILE ".deltmp", Emptied, OwnerAsCreated, ModeAsCreated, PublishNothing, FailsWithout};
inline constexpr MapVariant QuotaFieldsEditor =
    {VPASSWDFILE, ".editbak", VPASSWDFILE ".edittmp", Emptied, OwnerAsCreated, ModeAsCreated, PublishNothing, FailsWithout};
// clang-format on

// All of them: qvmailctl looks for work files that were left over.
inline constexpr const MapVariant* MapVariants[] = {
    &DomainListWriter,  &MailboxMapWriter,    &CatchAllWriter,        &QuotaMapWriter,
    &AliasMapWriter,    &DomainAliasesWriter, &DomainMailboxesWriter, &MailboxLinesWriter,
    &UserTypeWriter,    &PasswordWriter,      &QuotaFieldsAdder,      &QuotaFieldsRemover,
    &QuotaFieldsEditor,
};

#endif
