// What a change did, by kind and name: the answer of every command that changes something.
#ifndef QVMAILCTL_CHANGES_H
#define QVMAILCTL_CHANGES_H

#include "Hosting.h"
#include "Output.h"

#include <string>
#include <vector>

// The kinds are the objects of the commands.
enum class Kind { Domain, Mailbox, Quota, Alias, List, CatchAll };

class Changes
{
public:
    // detail  what people are told besides the name, such as the bytes of a quota.
    void added(Kind kind, const std::string& name, const std::string& detail = "");
    void removed(Kind kind, const std::string& name);
    void changed(Kind kind, const std::string& name, const std::string& detail = "");

    // A further value, for scripts only.
    void tellScripts(const char* key, const Json& value) { m_more[key] = value; }

    bool isEmpty() const { return m_entries.empty(); }

    // isDry  nothing was done: the answer says so.
    Answer answer(bool isDry) const;

private:
    struct Entry {
        const char* how;
        Kind kind;
        std::string name;
        std::string detail;
    };
    std::vector<Entry> m_entries;
    Json m_more = Json::object();
};

// "unlimited", or the number of bytes.
std::string textOf(const Quota& quota);
Json jsonOf(const Quota& quota);
Json jsonOf(Mailbox::Type type); // null: not known

#endif
