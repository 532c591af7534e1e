#include "Record.h"

#include "Output.h"

#include <algorithm>
#include <cstdlib>

#include <pwd.h>
#include <syslog.h>
#include <unistd.h>

namespace
{

// Without double quotes no name can end the quoted text of the record.
std::string withoutQuotes(std::string text)
{
    std::replace(text.begin(), text.end(), '"', '\'');
    return text;
}

// The user who became root, as far as sudo or the login tells.
std::string whoAsks()
{
    if (const char* const name = getenv("SUDO_USER"))
        return shown(name);
    if (const char* const name = getlogin())
        return shown(name);
    const struct passwd* const account = getpwuid(getuid());
    return account == nullptr ? std::to_string(getuid()) : account->pw_name;
}

} // namespace

void record(const std::string& command, const std::string& outcome)
{
    const bool isAboutPassword = command.rfind("mailbox passwd", 0) == 0;
    openlog("qvmailctl", LOG_PID, isAboutPassword ? LOG_AUTHPRIV : LOG_MAIL);
    syslog(outcome == "done" ? LOG_INFO : LOG_NOTICE, "user=%s command=\"%s\" outcome=%s",
           withoutQuotes(whoAsks()).c_str(), withoutQuotes(shown(command)).c_str(),
           outcome.c_str());
    closelog();
}
