#include "DovecotManager.h"

#include "maps/MapLines.h"
#include "maps/MapRewrite.h"
#include "maps/QuotaFields.h"

#include <functional>
#include <iostream>

namespace
{

constexpr int Replaced = 0;
constexpr int NotOpened = 1;
constexpr int NoSuchMailbox = 2;

// What all three operations do; only edited differs.
int editMailboxLine(const std::string& mailbox, const MapVariant& variant,
                    const std::function<std::string(std::string_view line)>& edited)
{
    backUp(VPASSWDFILE, variant.backupSuffix);
    if (replaceLastLine(VPASSWDFILE, mailbox, edited))
        return Replaced;

    bool found = false;
    const auto edit = [&](std::string_view line, MapWriter& newFile) {
        if (!found && contains(line, ":") && equalIgnoringCase(accountName(line), mailbox)) {
            newFile.writeLine(edited(line));
            found = true;
        } else if (found || !line.empty()) {
            // Empty lines before the mailbox's line are dropped, those after it are kept: also the
            // one that LineReader yields at the end, which so becomes part of the file.
            newFile.writeLine(line);
        }
    };
    if (!rewriteMap(variant, edit, [&](MapWriter&) { return found; }))
        return NotOpened;
    return found ? Replaced : NoSuchMailbox;
}

} // namespace

DovecotManager::DovecotManager() = default;

DovecotManager::~DovecotManager() = default;

int DovecotManager::addDovecotQuota(std::string mailbox, std::string homeDir, std::string quota)
{
    return editMailboxLine(mailbox, QuotaFieldsAdder, [&](std::string_view line) {
        std::string entry = addQuotaFields(line, homeDir, quota);
        std::cout << "quota entry =" << entry << std::endl;
        return entry;
    });
}

int DovecotManager::deleteDovecotQuota(std::string mailbox)
{
    return editMailboxLine(mailbox, QuotaFieldsRemover, withoutQuotaFields);
}

int DovecotManager::editDovecotQuota(std::string mailbox, std::string quota)
{
    return editMailboxLine(mailbox, QuotaFieldsEditor,
                           [&](std::string_view line) { return withQuotaFields(line, quota); });
}
