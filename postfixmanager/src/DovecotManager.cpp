#include "DovecotManager.h"

#include "maps/MapLines.h"
#include "maps/MapRewrite.h"

#include <algorithm>
#include <functional>
#include <iostream>
#include <vector>

namespace
{

constexpr int Replaced = 0;
constexpr int NotOpened = 1;
constexpr int NoSuchMailbox = 2;

constexpr std::size_t PlainFields = 7;
constexpr std::size_t HomeField = 5; // counted from 0
constexpr std::size_t FieldsWithQuota = 10;

using Fields = std::vector<std::string_view>;

// Splits as strtok does: a run of colons is one separator, so empty fields do not count.
Fields splitFields(std::string_view line)
{
    Fields fields;
    while (!line.empty()) {
        const std::string_view field = textBefore(line, ':');
        if (!field.empty())
            fields.push_back(field);
        line.remove_prefix(std::min(field.size() + 1, line.size()));
    }
    return fields;
}

std::string joinFields(const Fields& fields, std::size_t count)
{
    std::string line(fields[0]);
    for (std::size_t i = 1; i < count; ++i)
        line.append(":").append(fields[i]);
    return line;
}

std::string quotaFields(std::string_view home, const std::string& quota)
{
    return ":userdb_mail=mbox:" + std::string(home) + " userdb_quota_rule=*:storage=" + quota;
}

// The frame of all three editors.
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
            // Empty lines are dropped up to the mailbox's line and kept behind it, so that the one
            // after the last line end becomes part of the file.
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
        std::string entry = std::string(line) + quotaFields(homeDir, quota + "B");
        std::cout << "quota entry =" << entry << std::endl;
        return entry;
    });
}

int DovecotManager::deleteDovecotQuota(std::string mailbox)
{
    return editMailboxLine(mailbox, QuotaFieldsRemover, [](std::string_view line) {
        const Fields fields = splitFields(line);
        return fields.size() < PlainFields ? std::string(line) : joinFields(fields, PlainFields);
    });
}

int DovecotManager::editDovecotQuota(std::string mailbox, std::string quota)
{
    return editMailboxLine(mailbox, QuotaFieldsEditor, [&](std::string_view line) {
        const Fields fields = splitFields(line);
        if (fields.size() == FieldsWithQuota)
            return joinFields(fields, FieldsWithQuota - 1) + ":storage=" + quota + "B";
        if (fields.size() == PlainFields)
            return joinFields(fields, PlainFields - 1) + ":/bin/false" +
                   quotaFields(fields[HomeField], quota + "B");
        // Any other count, an empty comment field among the causes, is left as it is.
        return std::string(line);
    });
}
