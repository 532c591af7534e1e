// Passwords come from a terminal or from standard input, never from an argument, where every
// process could read them.
#ifndef QVMAILCTL_PASSWORDS_H
#define QVMAILCTL_PASSWORDS_H

#include <string>

// A mailbox's new password, wiped when it goes.
class Password
{
public:
    // On a terminal asks twice without echo; else takes one line of standard input. Ends the
    // command when the password is empty, too long or holds control characters, or at a Ctrl-C.
    explicit Password(const std::string& mailbox);
    ~Password();
    Password(const Password&) = delete;
    Password& operator=(const Password&) = delete;

    // The hash to store. From then on the text is gone.
    const std::string& hash();

private:
    std::string m_text;
    std::string m_hash;
};

// Whether a person types: what can be refused is then refused before the password is asked for.
bool isTyped();

// The fault of a password; null when it has none.
const char* faultOfPassword(const std::string& password);

// The fault of a hash that is to be stored as it is; null when it has none.
const char* faultOfHash(const std::string& hash);

// The hash to store. The password is wiped.
std::string hashOf(std::string& password);

// A password that nobody knows.
std::string randomPassword();

void wipe(std::string& text);

// A crash leaves no file with the memory of this process, or of the tools that it runs, and no other
// process of the user can look into it.
void keepNoCore();

#endif
