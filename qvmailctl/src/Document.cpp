#include "Document.h"

#include "Changes.h"
#include "Passwords.h"
#include "Results.h"
#include "maps/MapLines.h"

#include <algorithm>
#include <initializer_list>
#include <map>
#include <set>
#include <unordered_map>

namespace
{

constexpr int Format = 1;

// ---- Reading: the values, and where they stand ----

struct Node {
    Json& value;
    std::string place;
};

// Runs a check of a name or value, and adds the place to its refusal.
template <class Check> auto checkedAt(const std::string& place, const Check& check)
{
    try {
        return check();
    } catch (const Stop& refusal) {
        refuseAt(place, refusal.sentence);
    }
}

// An unknown key is refused: it may be misspelt, and its value would be lost.
void requireObject(const Node& node, std::initializer_list<const char*> keys)
{
    if (!node.value.is_object())
        refuseAt(node.place, "an object belongs here");
    for (const auto& [key, value] : node.value.items())
        if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
            std::string known;
            for (const char* const name : keys)
                known += (known.empty() ? "" : ", ") + std::string(name);
            refuseAt(node.place, "the key " + inQuotes(key) + " is unknown; here may be " + known);
        }
}

std::string below(const Node& node, const char* key)
{
    return node.place.empty() ? key : node.place + "." + key;
}

bool has(const Node& node, const char* key)
{
    return node.value.contains(key);
}

bool hasValue(const Node& node, const char* key)
{
    return has(node, key) && !node.value[key].is_null();
}

Node member(const Node& node, const char* key)
{
    if (!has(node, key))
        refuseAt(node.place, "the key \"" + std::string(key) + "\" is missing");
    return {node.value[key], below(node, key)};
}

std::string& textAt(const Node& node)
{
    if (!node.value.is_string())
        refuseAt(node.place, "a text belongs here");
    return node.value.get_ref<std::string&>();
}

// Passes on each element of the array; none when the object has no such key.
template <class Take> void forEach(const Node& node, const char* key, const Take& take)
{
    if (!has(node, key))
        return;
    const Node array = member(node, key);
    if (!array.value.is_array())
        refuseAt(array.place, "an array belongs here");
    for (std::size_t i = 0; i < array.value.size(); ++i)
        take(Node{array.value[i], array.place + "[" + std::to_string(i) + "]"});
}

Address addressAt(const Node& node, const std::string& domain)
{
    const std::string& text = textAt(node);
    Address address = checkedAt(node.place, [&] { return checkedAddress(text); });
    if (address.domain != domain)
        refuseAt(node.place, inQuotes(address.text) + " is no address of the domain " + domain);
    return address;
}

Addresses withoutRepeats(const Addresses& addresses)
{
    Addresses once;
    std::set<std::string> seen;
    for (const std::string& address : addresses)
        if (seen.insert(lowerCase(address)).second)
            once.push_back(address);
    return once;
}

Addresses targetsAt(const Node& node, const char* key)
{
    Addresses targets;
    forEach(node, key, [&](const Node& element) {
        const std::string& text = textAt(element);
        targets.push_back(checkedAt(element.place, [&] { return checkedTarget(text); }));
    });
    return withoutRepeats(targets);
}

// ---- A mailbox ----

std::string hashAt(const Node& node)
{
    const std::string& hash = textAt(node);
    if (const char* const fault = faultOfHash(hash))
        refuseAt(node.place, fault);
    return hash;
}

std::string passwordAt(const Node& node)
{
    std::string& text = textAt(node);
    if (const char* const fault = faultOfPassword(text))
        refuseAt(node.place, fault);
    std::string password = text;
    wipe(text);
    return password;
}

Quota quotaAt(const Node& node)
{
    if (node.value.is_null())
        return std::nullopt;
    if (!node.value.is_number_integer())
        refuseAt(node.place, "a whole number of bytes belongs here, or null for no limit");
    return checkedAt(node.place, [&] { return checkedQuota(node.value.dump()); });
}

Mailbox::Type typeAt(const Node& node)
{
    for (const Mailbox::Type type : {Mailbox::Unknown, Mailbox::User, Mailbox::Admin})
        if (node.value == jsonOf(type))
            return type;
    refuseAt(node.place, R"("admin", "user" or null belongs here)");
}

bool flagAt(const Node& node)
{
    if (!node.value.is_boolean())
        refuseAt(node.place, "true or false belongs here");
    return node.value.get<bool>();
}

Account accountAt(const Node& node, const std::string& domain)
{
    requireObject(node, {"address", "hash", "password", "quota", "type", "enabled", "forwards_to"});
    Account account;
    account.address = addressAt(member(node, "address"), domain);
    if (hasValue(node, "hash"))
        account.hash = hashAt(member(node, "hash"));
    if (hasValue(node, "password"))
        account.password = passwordAt(member(node, "password"));
    if (!account.hash.empty() && !account.password.empty())
        refuseAt(node.place, "either a hash or a password belongs here, not both");
    if (has(node, "quota"))
        account.quota = quotaAt(member(node, "quota"));
    if (has(node, "type"))
        account.type = typeAt(member(node, "type"));
    if (has(node, "enabled"))
        account.isEnabled = flagAt(member(node, "enabled"));
    if (has(node, "forwards_to"))
        account.forwardsTo = targetsAt(node, "forwards_to");
    if (account.forwardsTo && areSame(*account.forwardsTo, {account.address.text}))
        refuseAt(below(node, "forwards_to"), "a mailbox cannot forward to itself alone");
    return account;
}

// ---- Forwarders and lists ----

// key  the one that the targets stand under.
Forwarding forwardingAt(const Node& node, const char* key, const std::string& domain)
{
    requireObject(node, {"address", key});
    Forwarding forwarding;
    forwarding.address = addressAt(member(node, "address"), domain);
    const Node targets = member(node, key);
    forwarding.targets = targetsAt(node, key);
    if (forwarding.targets.empty())
        refuseAt(targets.place, "at least one address belongs here");
    for (const std::string& target : forwarding.targets)
        if (equalIgnoringCase(target, forwarding.address.text))
            refuseAt(targets.place, target + " cannot forward to itself");
    return forwarding;
}

Forwarding aliasAt(const Node& node, const std::string& domain)
{
    Forwarding alias = forwardingAt(node, "targets", domain);
    if (alias.targets.size() > 1)
        refuseAt(below(node, "targets"),
                 "an alias has one target; with several it is one of lists");
    return alias;
}

// ---- Domains ----

DomainPart domainAt(const Node& node)
{
    requireObject(node, {"domain", "catch_all", "mailboxes", "aliases", "lists"});
    DomainPart part;
    const Node name = member(node, "domain");
    const std::string& text = textAt(name);
    part.domain = checkedAt(name.place, [&] { return checkedDomain(text); });
    if (has(node, "catch_all"))
        part.catchAll = hasValue(node, "catch_all")
                            ? addressAt(member(node, "catch_all"), part.domain).text
                            : std::string();

    std::unordered_map<std::string, std::string> places; // by address
    const auto requireNew = [&](const Node& element, const Address& address) {
        const auto [place, isNew] = places.try_emplace(address.text, element.place);
        if (!isNew)
            refuseAt(below(element, "address"),
                     address.text + " is there twice: see " + place->second);
    };
    forEach(node, "mailboxes", [&](const Node& element) {
        part.mailboxes.push_back(accountAt(element, part.domain));
        requireNew(element, part.mailboxes.back().address);
    });
    forEach(node, "aliases", [&](const Node& element) {
        part.forwardings.push_back(aliasAt(element, part.domain));
        requireNew(element, part.forwardings.back().address);
    });
    forEach(node, "lists", [&](const Node& element) {
        part.forwardings.push_back(forwardingAt(element, "members", part.domain));
        requireNew(element, part.forwardings.back().address);
    });
    return part;
}

// ---- JSON ----

// The parser's message without the text that it read last, which may be a password.
std::string faultOfJson(const Json::exception& error)
{
    std::string text = error.what();
    text.erase(0, text.find("] ") + 2); // cuts the name of the exception
    return text.substr(0, text.find("; last read"));
}

// Builds the document from what the parser finds. The parser's own builder would silently keep one
// of two values of a key.
class Builder : public Json::json_sax_t
{
public:
    explicit Builder(Json& built) : m_document(built) {}

    bool null() override { return put(nullptr); }
    bool boolean(bool value) override { return put(value); }
    bool number_integer(number_integer_t value) override { return put(value); }
    bool number_unsigned(number_unsigned_t value) override { return put(value); }
    bool number_float(number_float_t value, const string_t& /*text*/) override
    {
        return put(value);
    }
    bool string(string_t& value) override { return put(std::move(value)); }
    bool binary(binary_t& /*value*/) override { return false; } // JSON has none
    bool start_object(std::size_t /*size*/) override { return open(Json::object()); }
    bool start_array(std::size_t /*size*/) override { return open(Json::array()); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }

    bool key(string_t& name) override
    {
        m_open.back().key = name;
        if (m_open.back().container->contains(name))
            refuseAt(place(), "this key is there twice");
        return true;
    }

    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const Json::exception& error) override
    {
        stop(Status::Refused, "the document is no JSON: " + faultOfJson(error));
    }

private:
    struct Open {
        Json* container;
        std::string key; // of the object's member that is being read
    };

    bool put(Json value)
    {
        add(std::move(value));
        return true;
    }

    Json* add(Json value)
    {
        if (m_open.empty())
            return &(m_document = std::move(value));
        Json& container = *m_open.back().container;
        if (container.is_object())
            return &(container[m_open.back().key] = std::move(value));
        container.push_back(std::move(value));
        return &container.back();
    }

    bool open(Json container)
    {
        m_open.push_back({add(std::move(container)), {}});
        return true;
    }

    bool close()
    {
        m_open.pop_back();
        return true;
    }

    std::string place() const
    {
        std::string text;
        for (const Open& open : m_open)
            if (open.container->is_array())
                text += "[" + std::to_string(open.container->size() - 1) + "]";
            else
                text += (text.empty() ? "" : ".") + shown(open.key);
        return text;
    }

    Json& m_document;
    std::vector<Open> m_open;
};

Json parsed(const std::string& text)
{
    Json document;
    Builder builder(document);
    Json::sax_parse(text, &builder);
    return document;
}

// ---- Writing ----

void leaveOut(const std::string& what, const std::string& why)
{
    tell("warning: " + what + " is left out: " + why);
}

constexpr const char* NotHosted = "its domain is not hosted";

std::string hashWithoutMark(const Mailbox& mailbox)
{
    return mailbox.isEnabled() ? mailbox.hash : mailbox.hash.substr(1);
}

// Why a mailbox of a hosted domain cannot stand in a document; null when it can.
const char* faultOfMailbox(const std::string& address, const Mailbox& mailbox)
{
    if (const char* const fault = faultOfAddress(address))
        return fault;
    if (!mailbox.isWhole())
        return "it is in only one of the two account files; \"qvmailctl check\" tells more";
    const std::string hash = hashWithoutMark(mailbox);
    return hash.empty() ? nullptr : faultOfHash(hash);
}

// The targets that can stand in a document.
Addresses fitTargetsOf(const Hosting& hosting, const std::string& address)
{
    Addresses targets;
    for (const std::string& target : forwardsOf(hosting, address))
        if (const char* const fault = faultOfTarget(target))
            leaveOut(inQuotes(target) + ", where " + address + " leads to,", fault);
        else
            targets.push_back(target);
    return targets;
}

Json entryOf(const Hosting& hosting, const std::string& address, const Mailbox& mailbox)
{
    const std::string hash = hashWithoutMark(mailbox);
    return {{"address", address},
            {"hash", hash.empty() ? Json(nullptr) : Json(hash)},
            {"quota", jsonOf(mailbox.quota)},
            {"type", jsonOf(mailbox.type)},
            {"enabled", mailbox.isEnabled()},
            {"forwards_to", fitTargetsOf(hosting, address)}};
}

} // namespace

Document readDocument(std::string& text)
{
    Json json = parsed(text);
    wipe(text);
    std::string().swap(text);
    const Node root{json, ""};
    requireObject(root, {"format", "domains"});
    if (member(root, "format").value != Format)
        refuseAt("format", "this command reads format " + std::to_string(Format) + " alone");
    member(root, "domains");

    Document document;
    std::unordered_map<std::string, std::string> places; // by domain
    forEach(root, "domains", [&](const Node& node) {
        document.push_back(domainAt(node));
        const std::string& domain = document.back().domain;
        const auto [place, isNew] = places.try_emplace(domain, node.place);
        if (!isNew)
            refuseAt(below(node, "domain"), domain + " is there twice: see " + place->second);
        node.value = nullptr; // its memory is no longer needed
    });
    return document;
}

std::string placeOf(std::size_t domain)
{
    return "domains[" + std::to_string(domain) + "]";
}

std::string placeOf(std::size_t domain, std::size_t mailbox)
{
    return placeOf(domain) + ".mailboxes[" + std::to_string(mailbox) + "]";
}

void refuseAt(const std::string& place, const std::string& fault)
{
    stop(Status::Refused, (place.empty() ? "the document" : place) + ": " + fault);
}

Json documentOf(const Hosting& hosting)
{
    std::map<std::string, Json> domains;
    for (const std::string& domain : hosting.domains) {
        if (faultOfDomain(domain) != nullptr) {
            leaveOut("the domain " + inQuotes(domain), faultOfDomain(domain));
            continue;
        }
        const std::string catchAll = hosting.catchAllOf(domain);
        const Mailbox* const taker = hosting.mailbox(catchAll);
        const bool isGood = catchAll.empty() || (domainOf(catchAll) == domain && taker != nullptr &&
                                                 faultOfMailbox(catchAll, *taker) == nullptr);
        if (!isGood)
            leaveOut("the catch-all of " + domain,
                     shown(catchAll) + " is no mailbox of it that could be told");
        domains[domain] = {{"domain", domain},
                           {"catch_all", catchAll.empty() || !isGood ? Json() : Json(catchAll)},
                           {"mailboxes", Json::array()},
                           {"aliases", Json::array()},
                           {"lists", Json::array()}};
    }
    const auto partOf = [&](const std::string& address) {
        return domains.find(std::string(domainOf(address)));
    };

    for (const auto& [address, mailbox] : hosting.mailboxes)
        if (const auto part = partOf(address); part == domains.end())
            leaveOut("the mailbox " + shown(address), NotHosted);
        else if (const char* const fault = faultOfMailbox(address, mailbox))
            leaveOut("the mailbox " + shown(address), fault);
        else
            part->second["mailboxes"].push_back(entryOf(hosting, address, mailbox));
    for (const auto& [address, unused] : hosting.aliases) {
        const auto part = partOf(address);
        if (part == domains.end()) {
            leaveOut("the forwarder " + shown(address), NotHosted);
            continue;
        }
        if (faultOfAddress(address) != nullptr) {
            leaveOut("the forwarder " + inQuotes(address), faultOfAddress(address));
            continue;
        }
        if (hosting.mailbox(address) != nullptr)
            continue; // told with the mailbox
        const Addresses targets = fitTargetsOf(hosting, address);
        if (targets.empty())
            leaveOut("the forwarder " + address, "it leads to no other address");
        else if (targets.size() == 1)
            part->second["aliases"].push_back({{"address", address}, {"targets", targets}});
        else
            part->second["lists"].push_back({{"address", address}, {"members", targets}});
    }
    for (const std::string& address : hosting.quotas)
        if (hosting.mailbox(address) == nullptr)
            leaveOut("the quota of " + shown(address), "there is no such mailbox");
    for (const auto& [domain, target] : hosting.catchAlls)
        if (!hosting.hosts(domain))
            leaveOut("the catch-all of " + shown(domain), NotHosted);

    Json all = Json::array();
    for (auto& [domain, part] : domains)
        all.push_back(std::move(part));
    return {{"format", Format}, {"domains", std::move(all)}};
}

std::vector<std::string> linesOfDocument(const Json& document)
{
    constexpr int OneLine = -1;
    const auto textOf = [](const Json& value) { // in ASCII
        return value.dump(OneLine, ' ', true, Json::error_handler_t::replace);
    };
    std::vector<std::string> lines = {R"({"format":)" + textOf(document["format"]) +
                                      R"(,"domains":[)"};
    const auto addArray = [&](const Json& part, const char* key) {
        lines.back() += ",";
        lines.push_back("  \"" + std::string(key) + "\":[");
        for (const Json& entry : part[key]) {
            lines.back() += &entry == &part[key].front() ? "" : ",";
            lines.push_back("    " + textOf(entry));
        }
        lines.back() += "]";
    };
    for (const Json& part : document["domains"]) {
        lines.back() += &part == &document["domains"].front() ? "" : ",";
        lines.push_back(R"( {"domain":)" + textOf(part["domain"]) + R"(,"catch_all":)" +
                        textOf(part["catch_all"]));
        for (const char* const key : {"mailboxes", "aliases", "lists"})
            addArray(part, key);
        lines.back() += "}";
    }
    lines.back() += "]}";
    return lines;
}

Addresses forwardsOf(const Hosting& hosting, const std::string& address)
{
    Addresses targets = withoutRepeats(hosting.targetsOf(address));
    // In the database, the row for itself means that the mailbox keeps a copy.
    if (!targets.empty() && hosting.selfRows.count(address) > 0)
        targets.insert(targets.begin(), address);
    return areSame(targets, {address}) ? Addresses() : targets;
}

bool areSame(const Addresses& some, const Addresses& others)
{
    const auto folded = [](const Addresses& addresses) {
        std::set<std::string> all;
        for (const std::string& address : addresses)
            all.insert(lowerCase(address));
        return all;
    };
    return folded(some) == folded(others);
}
