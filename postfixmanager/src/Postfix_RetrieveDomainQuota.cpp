#include "Backend.h"
#include "QuotaText.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"

#include <cstdlib>
#include <iostream>

namespace
{

constexpr long long BytesPerUnit = 1024; // quotas are in bytes, totals in KiB

struct QuotaEntry {
    std::string domain;
    std::string quota;
};

// The entry of a quota line: the domain stands after the first "@", the quota after the next blank
// or, if there is none, the next tab. Nothing for a line without them.
std::optional<QuotaEntry> quotaEntry(std::string_view line)
{
    const std::string_view::size_type at = line.find('@');
    if (at == std::string_view::npos)
        return std::nullopt;
    line.remove_prefix(at + 1);

    std::string_view::size_type separator = line.find(' ');
    if (separator == std::string_view::npos)
        separator = line.find('\t');
    if (separator == std::string_view::npos)
        return std::nullopt;

    QuotaEntry entry{std::string(line.substr(0, separator)),
                     std::string(line.substr(separator + 1))};
    trimRightSpaces(entry.domain);
    return entry;
}

// A sum beyond the number's range wraps around: undefined behaviour must not end the host.
long long sum(long long a, long long b)
{
    return static_cast<long long>(static_cast<unsigned long long>(a) +
                                  static_cast<unsigned long long>(b));
}

int totalFromMap(const std::string& domain, long long& total)
{
    MapReader map(VQUOTAFILE, domain);
    if (!map.isOpen()) {
        std::cout << "qouta file not found" << std::endl;
        return PostfixResult::TotalNotRead;
    }

    bool found = false;
    long long bytes = 0;
    std::string_view line;
    while (map.nextLine(line)) {
        const std::optional<QuotaEntry> entry = quotaEntry(line);
        if (!entry || entry->domain != domain)
            continue;
        found = true;
        if (entry->quota == UnlimitedQuota) {
            std::cout << "Unlimited Qouta set" << std::endl;
            bytes = -1;
            break;
        }
        bytes = sum(bytes, atoll(entry->quota.c_str()));
    }
    if (!found) {
        total = -1;
        return PostfixResult::TotalUnlimited;
    }
    // -1 is divided too: deliberate, hosts see 0 for a domain with an unlimited mailbox.
    total = bytes / BytesPerUnit;
    return PostfixResult::TotalRead;
}

int totalFromDatabase(PostfixManager& manager, const std::string& domain, long long& total)
{
    if (manager.Postfix_IsDomainHasUnlimitedQuota(domain)) {
        total = -1;
        return PostfixResult::TotalUnlimited;
    }
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::TotalNotRead;

    // A domain without mailboxes has no sum: total stays as the caller set it.
    const bool read = sql.readFirstFields(
        "select SUM(quota) from virtual_users where email like '%@" + domain + "'",
        [&](const std::string& bytes) { total = atoll(bytes.c_str()) / BytesPerUnit; });
    if (!read) {
        std::cout << "No quota resultset found" << std::endl;
        return PostfixResult::TotalNotRead;
    }
    return PostfixResult::TotalRead;
}

} // namespace

int PostfixManager::Postfix_RetrieveDomainQuota(std::string szMailDomainName,
                                                long long& ll_refQouta)
{
    return usesSql(*this) ? totalFromDatabase(*this, szMailDomainName, ll_refQouta)
                          : totalFromMap(szMailDomainName, ll_refQouta);
}
