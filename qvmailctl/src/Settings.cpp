#include "system/LargeFilesAndDates.h"

#include "Settings.h"

#include "MapFiles.h"
#include "Output.h"
#include "QVConfFileManager.h"
#include "Results.h"
#include "maps/LineReader.h"
#include "maps/MapLines.h"
#include "system/RegularFile.h"

#include <cctype>
#include <cerrno>
#include <map>

namespace
{

const std::string File = QVCONFFILE;

constexpr std::string_view Names[] = {
    "MailBackend",         "DovecotLDA",      "MailSqlServer",   "MailSqlPort",
    "MailSqlUser",         "MailSqlPassword", "MailSqlDatabase", "MailSqlConnectTimeout",
    "MailSqlAnswerTimeout"};

struct Setting {
    std::string value;
    int line;
};
using SettingsFound = std::map<std::string_view, Setting>;

[[noreturn]] void refuseLine(int number, const std::string& fault)
{
    stop(Status::NotFit, "line " + std::to_string(number) + " of " + File + ": " + fault);
}

std::string_view withoutBlanks(std::string_view text)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())) != 0)
        text.remove_prefix(1);
    return text;
}

// The line without what editors do not show at its beginning: a byte-order mark, and blanks of
// other alphabets.
std::string_view asSeen(std::string_view line)
{
    while (!line.empty() && (line.front() <= ' ' || line.front() > '~'))
        line.remove_prefix(1);
    return line;
}

// The name of a setting that the line begins with; empty when it is no setting of this product.
std::string_view nameIn(std::string_view line)
{
    for (const std::string_view name : Names)
        if (equalIgnoringCase(line.substr(0, name.size()), name))
            return name;
    return {};
}

// The library's two readers of this file agree on a setting only when it is written like this: a
// blank after the name, an equals sign perhaps, and the value between double quotes.
bool isWellWritten(std::string_view line, std::string_view name)
{
    line.remove_prefix(name.size());
    if (line.empty() || line.front() != ' ')
        return false;
    line = withoutBlanks(line);
    if (!line.empty() && line.front() == '=')
        line = withoutBlanks(line.substr(1));
    return line.size() > 1 && line.front() == '"' && contains(line.substr(1), "\"");
}

// A line that is too long is refused when a setting follows. Those readers stop at it: the setting
// would seem to be absent, and the command would work on the map files in place of the database.
SettingsFound readLines()
{
    constexpr std::size_t Longest = 118;
    SettingsFound found;
    int longLine = 0;
    LineReader reader(File);
    std::string_view line;
    for (int number = 1; reader.nextLine(line); ++number) {
        if (line.size() > Longest && longLine == 0)
            longLine = number;
        if (contains(line, std::string_view("\0", 1)))
            refuseLine(number,
                       "it holds a NUL byte; save the file as plain text, in ASCII or UTF-8");
        const std::string_view name = nameIn(asSeen(line));
        if (name.empty())
            continue;
        if (nameIn(withoutBlanks(line)).empty())
            refuseLine(number, "before the setting " + std::string(name) +
                                   " stand bytes that are not seen, such as a byte-order mark; "
                                   "remove them");
        if (longLine != 0)
            refuseLine(longLine, "longer than " + std::to_string(Longest) +
                                     " characters, so the setting " + std::string(name) +
                                     " in line " + std::to_string(number) +
                                     " is not read; shorten it");
        if (!isWellWritten(withoutBlanks(line), name))
            refuseLine(number, "the setting " + std::string(name) + " is not understood; write " +
                                   std::string(name) + " \"VALUE\"");
        QVConfFileManager file;
        std::string value;
        file.getParamFromQVConfFile(File, value, std::string(name));
        const auto [place, isFirst] = found.insert({name, {value, number}});
        if (!isFirst)
            refuseLine(number, "the setting " + std::string(name) + " is there twice; line " +
                                   std::to_string(place->second.line) + " counts, remove this one");
    }
    if (reader.error() != 0 && reader.error() != ENOENT)
        stop(Status::NotFit, File + " cannot be read: " + reader.reason());
    if (leadsNowhere(File))
        stop(Status::NotFit, File + " cannot be read: it is a link, and nothing is where it leads");
    return found;
}

// One of the two values; the first of them when the setting is absent.
std::string oneOf(const SettingsFound& found, std::string_view name, const char* byDefault,
                  const char* other, bool (*areEqual)(std::string_view, std::string_view))
{
    const auto setting = found.find(name);
    if (setting == found.end() || areEqual(setting->second.value, byDefault))
        return byDefault;
    if (!areEqual(setting->second.value, other))
        refuseLine(setting->second.line, "the setting " + std::string(name) + " is " +
                                             inQuotes(setting->second.value) + "; it must be \"" +
                                             byDefault + "\" or \"" + other + "\"");
    return other;
}

std::string needed(const SettingsFound& found, std::string_view name, bool mayBeEmpty = false)
{
    const auto setting = found.find(name);
    if (setting == found.end())
        stop(Status::NotFit, "the setting " + std::string(name) + " is missing in " + File +
                                 " and is needed for MailBackend \"mysql\"; add a line: " +
                                 std::string(name) + " \"VALUE\"");
    if (setting->second.value.empty() && !mayBeEmpty)
        refuseLine(setting->second.line, "the setting " + std::string(name) + " is empty");
    return setting->second.value;
}

// A number from 1 to the greatest.
int numberIn(const SettingsFound& found, std::string_view name, int greatest)
{
    const auto& [value, line] = found.at(name);
    const bool isNumber = !value.empty() && value.size() <= 5 &&
                          value.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber || std::stoi(value) < 1 || std::stoi(value) > greatest)
        refuseLine(line, "the setting " + std::string(name) + " is " + inQuotes(value) +
                             "; it must be a number from 1 to " + std::to_string(greatest));
    return std::stoi(value);
}

void readLimit(const SettingsFound& found, std::string_view name, unsigned& seconds)
{
    constexpr int Longest = 3600;
    if (found.count(name) > 0)
        seconds = numberIn(found, name, Longest);
}

bool areSame(std::string_view a, std::string_view b)
{
    return a == b;
}

} // namespace

Settings readSettings()
{
    const SettingsFound found = readLines();
    Settings settings;
    // As in the library: the letter case of "mysql" does not matter, that of "yes" does.
    settings.usesSql = oneOf(found, "MailBackend", "files", "mysql", equalIgnoringCase) == "mysql";
    settings.dovecotLDA = oneOf(found, "DovecotLDA", "no", "yes", areSame) == "yes";
    if (!settings.usesSql)
        return settings;

    settings.database.server = needed(found, "MailSqlServer");
    settings.database.port = needed(found, "MailSqlPort");
    settings.database.user = needed(found, "MailSqlUser");
    settings.database.password = needed(found, "MailSqlPassword", true);
    settings.database.database = needed(found, "MailSqlDatabase");
    constexpr int GreatestPort = 65535;
    numberIn(found, "MailSqlPort", GreatestPort);
    readLimit(found, "MailSqlConnectTimeout", settings.database.limits.connect);
    readLimit(found, "MailSqlAnswerTimeout", settings.database.limits.answer);
    return settings;
}
