// Passwords come from a terminal or from standard input, never from an argument, which every
// process could read.
#ifndef QVMAILCTL_PASSWORDS_H
#define QVMAILCTL_PASSWORDS_H

#include <string>

// A mailbox's new password. Its memory is wiped.
class Password
{
public:
    // On a terminal, asks twice without echo; otherwise takes one line of standard input. Ends the
    // command at a Ctrl-C, and when the password is empty, too long or holds control characters.
    explicit Password(const std::string& mailbox);
    ~Password();
    Password(const Password&) = delete;
    Password& operator=(const Password&) = delete;

    // The hash to store. The clear text is wiped then.
    const std::string& hash();

private:
    std::string m_text;
    std::string m_hash;
};

// Whether a person types the password. Everything that can be refused is then checked before the
// password is asked for.
bool isTyped();

// What is wrong with a password; null when nothing is.
const char* faultOfPassword(const std::string& password);

// What is wrong with a hash that is to be stored as it is; null when nothing is.
const char* faultOfHash(const std::string& hash);

// The hash to store. The password is wiped.
std::string hashOf(std::string& password);

// A password that nobody knows.
std::string randomPassword();

void wipe(std::string& text);

// After this call a crash leaves no file with the memory of this process or of the tools that it
// runs, and no other process of the user can read that memory.
void keepNoCore();

#endif
