#include "Settings.h"

#include "MapFiles.h"
#include "QVConfFileManager.h"
#include "Results.h"
#include "maps/LineReader.h"
#include "maps/MapLines.h"

#include <cctype>
#include <optional>

namespace
{

const std::string File = QVCONFFILE;

// Both readers stop at such a line: a backend named behind it would seem to be none, and the
// command would work on the wrong one.
void refuseEndlessLine()
{
    constexpr std::size_t Longest = 999;
    LineReader reader(File);
    std::string_view line;
    for (int number = 1; reader.nextLine(line); ++number)
        if (line.size() > Longest)
            refuse("line " + std::to_string(number) + " of " + File + " is longer than " +
                   std::to_string(Longest) + " characters and hides what follows; shorten it");
}

// The two readers agree on a setting only when it is written as it should be.
std::optional<std::string> setting(const std::string& name)
{
    QVConfFileManager file;
    std::string value;
    const bool isThere = file.isParamExistInQVConfFile(File, name);
    const bool isRead = file.getParamFromQVConfFile(File, value, name) == 1;
    if (isThere != isRead)
        refuse("the setting " + name + " in " + File + " cannot be read; write the line as: " +
               name + " \"VALUE\", with no line above it longer than 118 characters");
    if (!isThere)
        return std::nullopt;
    return value;
}

std::string needed(const std::string& name, bool mayBeEmpty = false)
{
    const std::optional<std::string> value = setting(name);
    if (!value || (value->empty() && !mayBeEmpty))
        refuse("the setting " + name + " is missing in " + File +
               " and is needed for MailBackend \"mysql\"; add a line: " + name + " \"VALUE\"");
    return *value;
}

bool isPort(const std::string& text)
{
    return text.size() <= 5 && text.find_first_not_of("0123456789") == std::string::npos &&
           std::stoi(text) >= 1 && std::stoi(text) <= 65535;
}

} // namespace

Settings readSettings()
{
    refuseEndlessLine();
    const std::string backend = setting("MailBackend").value_or("files");
    if (equalIgnoringCase(backend, "files"))
        return {};
    if (!equalIgnoringCase(backend, "mysql"))
        refuse("the setting MailBackend in " + File + " is \"" + backend +
               "\"; it must be \"files\" or \"mysql\"");

    Settings settings{true,
                      needed("MailSqlServer"),
                      needed("MailSqlPort"),
                      needed("MailSqlUser"),
                      needed("MailSqlPassword", true),
                      needed("MailSqlDatabase")};
    if (!isPort(settings.port))
        refuse("the setting MailSqlPort in " + File + " is \"" + settings.port +
               "\"; it must be a number from 1 to 65535");
    return settings;
}
