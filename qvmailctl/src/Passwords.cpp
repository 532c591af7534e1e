#include "Passwords.h"

#include "Encrypt.h"
#include "Hosting.h"
#include "Interruption.h"
#include "Output.h"
#include "PasswordHash.h"
#include "Results.h"
#include "maps/MapLines.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

namespace
{

constexpr std::size_t LongestPassword = 255; // what the library can change a password to
constexpr std::size_t Reserved = 1024;       // a text that grows would leave a copy behind

// Switches off the echo, and Ctrl-Z, which would leave it off in the shell.
class SilentTerminal
{
public:
    SilentTerminal()
    {
        tcgetattr(STDIN_FILENO, &m_before);
        termios silent = m_before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_cc[VSUSP] = _POSIX_VDISABLE;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~SilentTerminal() { tcsetattr(STDIN_FILENO, TCSADRAIN, &m_before); }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    termios m_before{};
};

// Reads byte by byte: what follows the line is not ours, and no buffer keeps a copy.
void readLine(std::string& line)
{
    line.reserve(Reserved);
    char c = 0;
    ssize_t count;
    do {
        waitForInput(STDIN_FILENO);
        count = read(STDIN_FILENO, &c, 1);
        if (count == 1 && c != '\n' && line.size() <= LongestPassword)
            line.push_back(c);
    } while ((count == 1 && c != '\n') || (count < 0 && errno == EINTR));
}

void ask(const std::string& question, std::string& line)
{
    prompt(question);
    readLine(line);
    prompt("\n");
}

void refuseBadPassword(const std::string& password)
{
    if (const char* const fault = faultOfPassword(password))
        stop(Status::Refused, fault);
}

} // namespace

Password::Password(const std::string& mailbox)
{
    watchInterruptions();
    if (!isTyped()) {
        readLine(m_text);
        refuseBadPassword(m_text);
        return;
    }
    const SilentTerminal terminal;
    ask("Password for " + mailbox + ": ", m_text);
    refuseBadPassword(m_text);
    std::string again;
    ask("The same once more: ", again);
    const bool areSame = again == m_text;
    wipe(again);
    if (!areSame)
        stop(Status::Refused, "the two passwords differ");
}

Password::~Password()
{
    wipe(m_text);
}

const std::string& Password::hash()
{
    if (m_hash.empty())
        m_hash = hashOf(m_text);
    return m_hash;
}

bool isTyped()
{
    return isatty(STDIN_FILENO) == 1;
}

const char* faultOfPassword(const std::string& password)
{
    if (password.empty())
        return "the password is empty; give it at the prompt or as one line of standard input";
    if (password.size() > LongestPassword)
        return "the password is too long: at most 255 bytes";
    for (const char c : password)
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f')
            return "the password holds a control character";
    return nullptr;
}

const char* faultOfHash(const std::string& hash)
{
    if (hash.empty() || hash.front() == DisabledMark)
        return "a hash belongs here without the mark of a disabled mailbox: write \"enabled\": "
               "false";
    if (!isStorable(hash))
        return "the hash holds a colon, a quote, a backslash, a blank or a control character";
    constexpr std::string_view FirstMarks = "${_*"; // crypt(3), {SCHEME}, no login
    constexpr std::size_t LengthWithoutMark = 13;   // crypt(3) of old
    if (!contains(FirstMarks, std::string_view(hash).substr(0, 1)) &&
        hash.size() != LengthWithoutMark)
        return "this is no hash as crypt(3) writes it, or with {SCHEME} before it; a clear "
               "password "
               "is written as \"password\"";
    return nullptr;
}

std::string hashOf(std::string& password)
{
    constexpr std::size_t LengthOfSalt = 9; // which hashing writes over the password
    password.resize(std::max(password.size(), LengthOfSalt));
    const char* const hash = Encrypt(password.data());
    wipe(password);
    if (!isPasswordHash(hash))
        stop(Status::NotFit, "crypt(3) of this system does not hash passwords as $1$ (MD5)");
    return hash;
}

std::string randomPassword()
{
    constexpr const char* Letters = "abcdefghijklmnopqrstuvwxyzABCDEF";
    std::string password(48, ' ');
    if (getentropy(password.data(), password.size()) != 0)
        stop(Status::NotFit, "the system gives no random numbers for a password");
    for (char& c : password)
        c = Letters[static_cast<unsigned char>(c) % 32U];
    return password;
}

void keepNoCore()
{
    constexpr rlimit None = {0, 0};
    setrlimit(RLIMIT_CORE, &None);
    prctl(PR_SET_DUMPABLE, 0); // also keeps cores from a program of core_pattern
}

void wipe(std::string& text)
{
    explicit_bzero(text.data(), text.capacity());
}
