#include "Changes.h"

#include <array>

namespace
{

struct KindName {
    const char* one;
    const char* many;
};

constexpr std::array<KindName, 6> Kinds = {{{"domain", "domains"},
                                            {"mailbox", "mailboxes"},
                                            {"quota", "quotas"},
                                            {"alias", "aliases"},
                                            {"list", "lists"},
                                            {"catch-all", "catch_alls"}}};

const KindName& nameOf(Kind kind)
{
    return Kinds.at(static_cast<std::size_t>(kind));
}

} // namespace

void Changes::added(Kind kind, const std::string& name, const std::string& detail)
{
    m_entries.push_back({"added", kind, name, detail});
}

void Changes::removed(Kind kind, const std::string& name)
{
    m_entries.push_back({"removed", kind, name, ""});
}

void Changes::changed(Kind kind, const std::string& name, const std::string& detail)
{
    m_entries.push_back({"changed", kind, name, detail});
}

Answer Changes::answer(bool isDry) const
{
    Answer answer{Json::object(), {}};
    if (isDry)
        answer.result["dry_run"] = true;
    for (const char* const how : {"added", "removed", "changed"})
        answer.result[how] = Json::object();
    answer.result.update(m_more);
    for (const Entry& entry : m_entries) {
        answer.result[entry.how][nameOf(entry.kind).many].push_back(entry.name);
        answer.lines.push_back(std::string(isDry ? "dry run: " : "") + entry.how + " " +
                               nameOf(entry.kind).one + " " + entry.name +
                               (entry.detail.empty() ? "" : " " + entry.detail));
    }
    return answer;
}

std::string textOf(const Quota& quota)
{
    return quota ? std::to_string(*quota) : "unlimited";
}

Json jsonOf(const Quota& quota)
{
    return quota ? Json(*quota) : Json(nullptr);
}

Json jsonOf(Mailbox::Type type)
{
    if (type == Mailbox::Unknown)
        return nullptr;
    return type == Mailbox::Admin ? "admin" : "user";
}
