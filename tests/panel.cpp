// panel TIMES - a panel that works beside qvmailctl: each time it makes a mailbox with a forwarder in
// b.test, in one transaction, which it drops every third time. Prints what stays.
#include "create_mailbox.h"

#include <PostfixTransaction.h>
#include <QVConfFileManager.h>

#include <cstdlib>
#include <iostream>

static std::string setting(const std::string& name)
{
    std::string value;
    QVConfFileManager().getParamFromQVConfFile("/etc/Quorvel.conf", value, name);
    return value;
}

int main(int, char** arguments)
{
    std::cout.setstate(std::ios::failbit); // the library's progress lines
    CQVTrackManager tracing;
    PostfixManager manager(&tracing, "", setting("MailBackend"), setting("MailSqlServer"),
                           setting("MailSqlPort"), setting("MailSqlUser"),
                           setting("MailSqlPassword"), setting("MailSqlDatabase"));
    for (int i = 0; i < std::atoi(arguments[1]); ++i) {
        const std::string user = "panel" + std::to_string(i);
        PostfixTransaction transaction(manager);
        const bool isDone = transaction.open(120) == PostfixTransaction::Done &&
                            createMailbox(manager, "b.test", user, "secret", "1024") ==
                                PostfixResult::MailboxCreated &&
                            manager.Postfix_VAlias("to" + user + "@b.test", user + "@b.test",
                                                   "AddAlias") == PostfixResult::AliasAdded;
        if (i % 3 == 2)
            continue;
        if (!isDone || transaction.commit() != PostfixTransaction::Done) {
            std::cerr << user << ": " << transaction.failure() << transaction.reason() << "\n";
            return 1;
        }
        std::cerr << user << "@b.test\n";
    }
}
