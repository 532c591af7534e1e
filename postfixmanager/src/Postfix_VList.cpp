#include "Backend.h"
#include "CallTrace.h"
#include "maps/MapEntries.h"
#include "maps/MapLines.h"

#include <cctype>
#include <iostream>

namespace
{

bool isWhiteSpace(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

void skipWhiteSpace(std::string_view& text)
{
    while (!text.empty() && isWhiteSpace(text.front()))
        text.remove_prefix(1);
}

// Splits the comma-separated members. A member of one character ends the list, and what follows it
// is lost: deliberate, hosts pass addresses and get the same rows as ever.
VectorString splitMembers(std::string_view text)
{
    VectorString members;
    for (;;) {
        std::cout << "ptr=" << text << std::endl;
        skipWhiteSpace(text);
        const std::string_view::size_type comma = text.find(',');
        if (comma == std::string_view::npos)
            break;
        if (comma == 1 || (comma == 0 && text.size() == 1)) {
            text = text.substr(0, comma);
            break;
        }
        std::string_view member = text.substr(0, comma);
        while (!member.empty() && isWhiteSpace(member.back()))
            member.remove_suffix(1);
        if (!member.empty())
            members.emplace_back(member);
        text.remove_prefix(comma + 1);
    }
    if (!text.empty())
        members.emplace_back(text);
    return members;
}

std::string insertion(const std::string& list, const VectorString& members)
{
    std::string statement = "insert into virtual_aliases values ";
    const char* separator = "";
    for (const std::string& member : members) {
        statement.append(separator).append("('").append(list).append("','").append(member).append(
            "')");
        separator = ",";
    }
    return statement;
}

std::string deletion(const std::string& list)
{
    return "delete from virtual_aliases where source = '" + list + "'";
}

int changeInDatabase(PostfixManager& manager, const std::string& list,
                     const VectorString& addresses, const std::string& action)
{
    SqlCall sql = connectSql(manager);
    if (!sql.isConnected())
        return PostfixResult::RequestFailed;

    const bool takesMembers = action == "AddList" || action == "UpdateList";
    VectorString members;
    if (takesMembers && !addresses.empty())
        members = splitMembers(addresses.front().c_str());
    if (action == "AddList" && manager.Postfix_IsVListExists(list))
        return PostfixResult::ListExists;
    if (takesMembers && members.empty())
        return PostfixResult::RequestFailed;

    std::string query;
    int done;
    if (action == "AddList") {
        query = insertion(list, members);
        done = PostfixResult::ListAdded;
    } else if (action == "UpdateList") {
        if (!sql.execute(deletion(list)))
            return PostfixResult::Failed;
        query = insertion(list, members);
        done = PostfixResult::ListUpdated;
    } else if (action == "DeleteList") {
        query = deletion(list);
        done = PostfixResult::ListDeleted;
    } else {
        sql.leaveOpen();
        return PostfixResult::RequestFailed;
    }
    return sql.execute(query) ? done : PostfixResult::RequestFailed;
}

int changeInMap(PostfixManager& manager, const std::string& list, const VectorString& addresses,
                const std::string& action)
{
    // Unlike Postfix_VAlias, this operation tries a copy also when there is no map.
    backUp(VALIASFILE, AliasMapWriter.backupSuffix);
    openMapDirectory();

    // All elements are written here, with a database only the first: hosts pass one, with commas.
    std::string entry = list;
    for (const std::string& address : addresses)
        entry.append(" ").append(address);

    const LineTest isMine = [&](std::string_view line) {
        return standsFor(line, mapKey(line), list);
    };
    if (action == "AddList") {
        if (addEntry(AliasMapWriter, list, isMine, entry) == Added::No)
            return PostfixResult::ListExists;
        manager.ErrNo = PostfixResult::ListAdded;
    } else if (action == "DeleteList") {
        if (!dropEntries(AliasMapWriter, isMine))
            return PostfixResult::RequestFailed;
        manager.ErrNo = PostfixResult::ListDeleted;
    } else if (action == "UpdateList") {
        if (replaceEntries(AliasMapWriter, isMine, entry, WhenAbsent::Skip) == Replaced::NotOpened)
            return PostfixResult::Failed;
        manager.ErrNo = PostfixResult::ListUpdated;
    }
    // Any other action changes nothing, yet publishes, and answers with what an earlier call left.
    publish(AliasMapWriter);
    return manager.ErrNo;
}

} // namespace

int PostfixManager::Postfix_VList(std::string ListName, VectorString* Addresses, std::string Action)
{
    traceCall(*this, "Postfix_VList", {ListName, Action}, {"ListName", "Action"});

    const VectorString addresses = Addresses == nullptr ? VectorString() : *Addresses;
    return usesSql(*this) ? changeInDatabase(*this, ListName, addresses, Action)
                          : changeInMap(*this, ListName, addresses, Action);
}
