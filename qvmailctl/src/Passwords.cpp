#include "Passwords.h"

#include "Output.h"
#include "Results.h"

#include <cerrno>
#include <cstring>

#include <termios.h>
#include <unistd.h>

namespace
{

constexpr std::size_t LongestPassword = 255; // what the library can change a password to
constexpr std::size_t Reserved = 1024;       // no growing, which would leave copies behind

void wipe(std::string& text)
{
    explicit_bzero(text.data(), text.capacity());
}

// Without echo and without signals, so that an interrupted prompt cannot leave the terminal mute:
// a Ctrl-C is read as a character, and refused with the line.
class SilentTerminal
{
public:
    SilentTerminal()
    {
        tcgetattr(STDIN_FILENO, &m_before);
        termios silent = m_before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~SilentTerminal() { tcsetattr(STDIN_FILENO, TCSADRAIN, &m_before); }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    termios m_before{};
};

// Reads by the byte: what follows the line belongs to others, and no buffer keeps a copy.
void readLine(std::string& line)
{
    line.reserve(Reserved);
    char c = 0;
    ssize_t count;
    while ((count = read(STDIN_FILENO, &c, 1)) == 1 || (count < 0 && errno == EINTR)) {
        if (count < 0)
            continue;
        if (c == '\n')
            return;
        if (line.size() <= LongestPassword)
            line.push_back(c);
    }
}

void ask(const std::string& question, std::string& line)
{
    prompt(question);
    readLine(line);
    prompt("\n");
}

void refuseBadPassword(const std::string& password)
{
    if (password.empty())
        refuse("the password is empty; give it at the prompt or as one line of standard input");
    if (password.size() > LongestPassword)
        refuse("the password is too long: at most 255 bytes");
    for (const char c : password)
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f')
            refuse("the password holds a control character");
}

} // namespace

Password::Password(const std::string& mailbox)
{
    if (isatty(STDIN_FILENO) == 0) {
        readLine(m_text);
        refuseBadPassword(m_text);
    } else {
        const SilentTerminal terminal;
        ask("Password for " + mailbox + ": ", m_text);
        refuseBadPassword(m_text);
        std::string again;
        ask("The same once more: ", again);
        const bool same = again == m_text;
        wipe(again);
        if (!same)
            refuse("the two passwords differ");
    }
}

Password::~Password()
{
    wipe(m_text);
}

char* Password::buffer()
{
    m_text.resize(LongestPassword + 1);
    return m_text.data();
}
