// The smallest host: takes one exported thing of each kind from the installed library and looks at
// what comes back. For a root of its own (scripts/test-package), in which /etc/VirtualHosts and
// /etc/vmail/vpasswd are empty files: it lists a domain there.
#include <DovecotManager.h>
#include <MySQLClient.h>
#include <PostfixManager.h>
#include <QVConfFileManager.h>

#include <fstream>
#include <iostream>

class Announcer : public CQVTrackManager
{
public:
    VectorString methods;
    void CQVMethodName(std::string name) override { methods.push_back(name); }
};

static int failures = 0;

static void expect(bool holds, const char* what)
{
    failures += !holds;
    std::cout << (holds ? "ok: " : "NOT ok: ") << what << std::endl;
}

int main()
{
    Announcer announcer;
    PostfixManager manager(&announcer, "", "files", "", "", "", "", "");
    const int result = manager.Postfix_VHostFile("example.com", "AddDomain");
    std::string listed;
    std::getline(std::ifstream(VDOMAINFILE), listed);
    expect(result == PostfixResult::Done && listed == "example.com",
           "PostfixManager lists a domain");
    expect(announcer.methods == VectorString{"Postfix_VHostFile"}, "the host's tracing is called");

    std::string text = " \ttext ";
    trimRightSpaces(text);
    expect(text == "text", "trimRightSpaces");

    char password[16] = "secret";
    expect(std::string(Encrypt(password)).rfind("$1$", 0) == 0, "Encrypt");

    std::string value;
    expect(QVConfFileManager().getParamFromQVConfFile(QVCONFFILE, value, "DovecotLDA") == 0,
           "QVConfFileManager");
    expect(DovecotManager().deleteDovecotQuota("nobody@example.com") == 2, "DovecotManager");
    expect(MySQLClient("user", "password", "localhost", "").CloseDBConnection() == 0,
           "MySQLClient");
    return failures == 0 ? 0 : 1;
}
