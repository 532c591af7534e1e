// The settings: the command refuses them and names the file, or it takes what the library's two readers
// agree on.
#include "world.h"

#include "QVConfFileManager.h"
#include "Results.h"
#include "Settings.h"

// As a host uses the two readers.
static std::string readByLibrary(const std::string& name)
{
    QVConfFileManager file;
    std::string value;
    const bool isThere = file.isParamExistInQVConfFile(QVCONFFILE, name) &&
                         file.getParamFromQVConfFile(QVCONFFILE, value, name) == 1;
    return isThere ? value : "absent";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    put(QVCONFFILE, {reinterpret_cast<const char*>(data), size});
    const bool usesSql = equalIgnoringCase(readByLibrary("MailBackend"), "mysql");
    const bool usesAgent = readByLibrary("DovecotLDA") == "yes";
    try {
        const Settings settings = readSettings();
        require(usesSql == settings.usesSql, "backend");
        require(usesAgent == settings.dovecotLDA, "delivery agent");
        require(!usesSql || readByLibrary("MailSqlUser") == settings.database.user, "user");
    } catch (const Stop& refusal) {
        require(refusal.status == Status::NotFit && contains(refusal.sentence, QVCONFFILE),
                refusal.sentence);
    }
    return 0;
}
