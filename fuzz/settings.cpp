// The settings: what the command makes of them is what the library reads and what a person sees.
#include "world.h"

#include "QVConfFileManager.h"
#include "Results.h"
#include "Settings.h"

#include <map>

namespace
{

constexpr const char* Names[] = {"MailBackend", "DovecotLDA",      "MailSqlServer",  "MailSqlPort",
                                 "MailSqlUser", "MailSqlPassword", "MailSqlDatabase"};

// Byte-order marks, blanks of other alphabets and control characters before a name have no look, and
// a NUL has none anywhere.
std::string asSeen(const std::string& line)
{
    std::string seen;
    for (const char c : line)
        if (c != '\0' && (!seen.empty() || (c > ' ' && c <= '~')))
            seen.push_back(c);
    return seen;
}

// How often each setting seems to be there.
std::map<std::string, int> countsIn(const std::string& text)
{
    std::map<std::string, int> counts;
    for (const std::string& line : linesOf(text))
        for (const std::string name : Names)
            counts[name] += equalIgnoringCase(asSeen(line).substr(0, name.size()), name);
    return counts;
}

// As a host uses the two readers.
std::string readByLibrary(const std::string& name)
{
    QVConfFileManager file;
    std::string value;
    const bool isThere = file.isParamExistInQVConfFile(QVCONFFILE, name) &&
                         file.getParamFromQVConfFile(QVCONFFILE, value, name) == 1;
    return isThere ? value : "absent";
}

void compare(const Settings& settings, const std::string& text)
{
    for (const auto& [name, count] : countsIn(text)) {
        require(count < 2, name + " is there twice");
        require((readByLibrary(name) != "absent") == (count == 1),
                name + " is there for one alone");
    }
    require(equalIgnoringCase(readByLibrary("MailBackend"), "mysql") == settings.usesSql,
            "backend");
    require((readByLibrary("DovecotLDA") == "yes") == settings.dovecotLDA, "delivery agent");
    if (!settings.usesSql)
        return;
    require(readByLibrary("MailSqlServer") == settings.database.server, "server");
    require(readByLibrary("MailSqlPort") == settings.database.port, "port");
    require(readByLibrary("MailSqlUser") == settings.database.user, "user");
    require(readByLibrary("MailSqlPassword") == settings.database.password, "password");
    require(readByLibrary("MailSqlDatabase") == settings.database.database, "database");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    put(QVCONFFILE, text);
    try {
        compare(readSettings(), text);
    } catch (const Stop& refusal) {
        require(refusal.status == Status::NotFit && contains(refusal.sentence, QVCONFFILE),
                refusal.sentence);
    }
    for (const char* const name : Names)
        readByLibrary(name);
    return 0;
}
