// The smallest host: takes one exported thing of each kind from the installed library and looks at
// what comes back. For a root of its own (scripts/test-package), in which /etc/VirtualHosts and
// /etc/vmail/vpasswd are empty files: it lists a domain there.
#include <DovecotManager.h>
#include <MySQLClient.h>
#include <PostfixManager.h>
#include <QVConfFileManager.h>

#include <fstream>
#include <iostream>

struct Announcer : CQVTrackManager {
    VectorString methods;
    void CQVMethodName(std::string name) override { methods.push_back(name); }
};

int main()
{
    Announcer announcer;
    PostfixManager manager(&announcer, "", "files", "", "", "", "", "");
    const int result = manager.Postfix_VHostFile("example.com", "AddDomain");
    std::string listed, value, text = " \ttext ";
    std::getline(std::ifstream(VDOMAINFILE), listed);
    trimRightSpaces(text);
    char password[16] = "secret";

    const std::pair<const char*, bool> checks[] = {
        {"PostfixManager", result == PostfixResult::Done && listed == "example.com"},
        {"the host's tracing is called", announcer.methods == VectorString{"Postfix_VHostFile"}},
        {"trimRightSpaces", text == "text"},
        {"Encrypt", std::string(Encrypt(password)).rfind("$1$", 0) == 0},
        {"QVConfFileManager",
         QVConfFileManager().getParamFromQVConfFile(QVCONFFILE, value, "DovecotLDA") == 0},
        {"DovecotManager", DovecotManager().deleteDovecotQuota("nobody@example.com") == 2},
        {"MySQLClient", MySQLClient("user", "word", "localhost", "").CloseDBConnection() == 0}};
    int failures = 0;
    for (const auto& [what, holds] : checks) {
        failures += holds ? 0 : 1;
        std::cout << (holds ? "ok: " : "NOT ok: ") << what << std::endl;
    }
    return failures;
}
