#include "Operations.h"

#include <memory>

namespace
{

constexpr const char* Change = "change";
constexpr const char* Query = "query";

// An account record, and the strings that it points to.
struct Record {
    Record(const std::string& domain, std::string mailbox)
        : address(std::move(mailbox)), home(homeOf(domain, address))
    {
        account.pw_name = account.pw_gecos = address.data();
        account.pw_passwd = passwordField;
        account.pw_uid = 4201;
        account.pw_gid = 4101;
        account.pw_dir = home.data();
        account.pw_shell = shell;
        shadow.sp_namp = address.data();
        shadow.sp_pwdp = password.data();
        shadow.sp_expire = -1;
        shadow.sp_flag = 1;
        user.Password = &account;
        user.Shadow = &shadow;
    }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    std::string address, home, password = Password;
    char passwordField[2] = "x";
    char shell[11] = "/bin/false";
    passwd account{};
    spwd shadow{};
    SvpopUser user{};
};

Sides floorOf(const Steps& steps)
{
    return {{"floor", steps}};
}

// With files, a query is compared with grep and with one read of the same files; both come after
// the commands that the query runs.
Sides readings(const std::string& text, const std::vector<std::string>& files,
               const Steps& before = {})
{
    Steps grep = before;
    Steps wc = before;
    for (const std::string& file : files) {
        grep = grep + ran({"grep", "-c", "-F", text, file});
        wc = wc + ran({"wc", "-l", file});
    }
    return {{"grep", grep}, {"wc", wc}};
}

Sides statements(const Statements& texts)
{
    return floorOf(connected(texts));
}

std::string quoted(const std::string& text)
{
    return "'" + text + "'";
}

std::string deletion(const std::string& source)
{
    return "delete from virtual_aliases where source = '" + source + "'";
}

Steps created(const std::string& home)
{
    return backedUp(VPASSWDFILE) + backedUp(VPASSWDFILE, ".addbak") + rewritten(VPASSWDFILE) +
           backedUp(VSHADOWFILE) + hashed(1) + backedUp(VQUOTAFILE) + published(VQUOTAFILE) +
           backedUp(VMAPSFILE) + published(VMAPSFILE) + madeDirectories({home});
}

Steps createdRows(const std::string& address, const std::string& home)
{
    return hashed(1) + connected(insertions(address)) + madeDirectories({home});
}

Steps madeTree(const std::string& domain)
{
    VectorString directories;
    for (const TreeDirectory& directory : DomainTree)
        directories.push_back(VSPOOLDIR "/" + domain + directory.path);
    return madeDirectories(directories);
}

// The floor of a change that rewrites the map.
Steps changed(const char* map, const char* suffix = ".qvbackup")
{
    return backedUp(map, suffix) + rewritten(map) + published(map);
}

std::function<void(PostfixManager&)> returns(int code,
                                             const std::function<int(PostfixManager&)>& call)
{
    return [code, call](PostfixManager& manager) {
        const int answer = call(manager);
        expect(answer == code,
               "an operation: " + std::to_string(answer) + " in place of " + std::to_string(code));
    };
}

Operations domainOperations(const World& w)
{
    const std::string newHome = homeOf(w.newDomain, "first@" + w.newDomain);
    const std::string inDomain = "like '%@" + w.domain + "'";
    const Steps removedTree = command("rm -r " + w.tree());
    return {
        {Change, "CreateMailDomain",
         returns(PostfixResult::DomainCreated,
                 [w](auto& m) {
                     return m.Postfix_CreateMailDomain(w.newDomain, "first", Password, Quota);
                 }),
         floorOf(backedUp(VDOMAINFILE) + madeTree(w.newDomain) + created(newHome) +
                 published(VMAPSFILE)),
         floorOf(backedUp(VDOMAINFILE) +
                 connected({"insert into  virtual_domains values ('" + w.newDomain + "')"}) +
                 madeTree(w.newDomain) + createdRows("first@" + w.newDomain, newHome) +
                 published(VMAPSFILE))},
        {Change, "DeleteMailDomain",
         returns(PostfixResult::DomainDeleted,
                 [w](auto& m) { return m.Postfix_DeleteMailDomain(w.domain); }),
         floorOf(backedUp(VDOMAINFILE) + rewritten(VDOMAINFILE) + rewritten(VPASSWDFILE) +
                 rewritten(VSHADOWFILE) + rewritten(VMAPSFILE) + rewritten(VQUOTAFILE) +
                 rewritten(VALIASFILE) + published(VALIASFILE) + removedTree),
         floorOf(backedUp(VDOMAINFILE) +
                 connected({"delete from  virtual_domains where name = " + quoted(w.domain)}) +
                 connected({"delete from virtual_users where email " + inDomain}) +
                 connected({"delete from virtual_aliases where source " + inDomain}) +
                 removedTree)},
        {Change,
         "CreateDomDir",
         returns(PostfixResult::Done, [w](auto& m) { return m.Postfix_CreateDomDir(w.newDomain); }),
         floorOf(madeTree(w.newDomain)),
         {}},
        {Change, "VHostFile AddDomain",
         returns(PostfixResult::Done,
                 [w](auto& m) { return m.Postfix_VHostFile(w.newDomain, "AddDomain"); }),
         floorOf(backedUp(VDOMAINFILE)),
         floorOf(backedUp(VDOMAINFILE) +
                 connected({"insert into  virtual_domains values ('" + w.newDomain + "')"}))},
        {Change, "VHostFile RmvDomain",
         returns(PostfixResult::Done,
                 [w](auto& m) { return m.Postfix_VHostFile(w.domain, "RmvDomain"); }),
         floorOf(backedUp(VDOMAINFILE) + rewritten(VDOMAINFILE)),
         floorOf(backedUp(VDOMAINFILE) +
                 connected({"delete from  virtual_domains where name = " + quoted(w.domain)}))},
        {Change,
         "DeleteDomMailboxes",
         returns(PostfixResult::Done,
                 [w](auto& m) { return m.Postfix_DeleteDomMailboxes(w.domain, VPASSWDFILE); }),
         floorOf(rewritten(VPASSWDFILE)),
         {}},
        {Change, "DeleteDomAliases",
         returns(PostfixResult::Done,
                 [w](auto& m) { return m.Postfix_DeleteDomAliases(w.domain); }),
         floorOf(rewritten(VALIASFILE) + published(VALIASFILE)),
         statements({"delete from virtual_aliases where source " + inDomain})},
    };
}

Operations mailboxOperations(const World& w)
{
    const std::string byEmail = " where email = " + quoted(w.address);
    const std::string inDomain = "like '%@" + w.domain + "'";
    const Steps removedMail =
        command("rm -r " + w.homeOf(w.address)) + command("rm  " + w.inboxOf(w.address));
    return {
        {Change, "CreateMailbox", [w](auto& m) { createMailbox(m, w, 0); },
         floorOf(created(w.homeOf(w.newAddress))),
         floorOf(createdRows(w.newAddress, w.homeOf(w.newAddress)))},
        {Change, "DeleteMailbox",
         returns(PostfixResult::MailboxDeleted,
                 [w](auto& m) { return m.Postfix_DeleteMailbox(w.user, w.domain); }),
         floorOf(rewritten(VPASSWDFILE) + rewritten(VSHADOWFILE) + changed(VMAPSFILE) +
                 changed(VALIASFILE) + backedUp(VPASSWDFILE, ".delbak") + changed(VQUOTAFILE) +
                 removedMail),
         floorOf(connected({"delete from virtual_users" + byEmail, deletion(w.address)}) +
                 removedMail)},
        {Change,
         "DeleteMailboxUser",
         returns(PostfixResult::Done,
                 [w](auto& m) { return m.Postfix_DeleteMailboxUser(w.address, VPASSWDFILE); }),
         floorOf(rewritten(VPASSWDFILE)),
         {}},
        {Change, "UpdateMailbox UpdatePasswd",
         returns(
             PostfixResult::Updated,
             [w](auto& m) { return m.Postfix_UpdateMailbox(w.address, Password, "UpdatePasswd"); }),
         floorOf(hashed(1) + rewritten(VSHADOWFILE) + reloaded()),
         floorOf(hashed(1) + connected({"update virtual_users set password = 'hash'" + byEmail}))},
        {Change,
         "UpdateMailbox UpdateUserType",
         returns(
             PostfixResult::Updated,
             [w](auto& m) { return m.Postfix_UpdateMailbox(w.address, "user", "UpdateUserType"); }),
         floorOf(rewritten(VPASSWDFILE) + rewritten(VSHADOWFILE) + reloaded()),
         {}},
        {Change,
         "PasswdFile",
         [w](auto& m) {
             Record r(w.domain, w.newAddress);
             expect(m.Postfix_PasswdFile(&r.user) == PostfixResult::Done, "PasswdFile");
         },
         floorOf(backedUp(VPASSWDFILE)),
         {}},
        {Change,
         "ShadowFile",
         [w](auto& m) {
             Record r(w.domain, w.newAddress);
             expect(m.Postfix_ShadowFile(&r.user) == PostfixResult::Done, "ShadowFile");
         },
         floorOf(backedUp(VSHADOWFILE) + hashed(1)),
         {}},
        {Change,
         "VMaps AddUser",
         returns(PostfixResult::Done,
                 [w](auto& m) { return m.Postfix_VMaps(w.newUser, w.domain, "AddUser"); }),
         floorOf(backedUp(VMAPSFILE) + published(VMAPSFILE)),
         {}},
        {Change,
         "VMaps RmvUser",
         returns(PostfixResult::Done,
                 [w](auto& m) { return m.Postfix_VMaps(w.address, w.domain, "RmvUser"); }),
         floorOf(changed(VMAPSFILE)),
         {}},
        {Query, "GetMailboxList",
         [w](auto& m) {
             VectorString found;
             expect(m.Postfix_GetMailboxList(w.domain, &found) == PostfixResult::Done &&
                        !found.empty(),
                    "GetMailboxList");
         },
         readings("@" + w.domain, {VPASSWDFILE}),
         statements({"select email from virtual_users where email " + inDomain})},
        {Query, "GetMailboxCount",
         [w](auto& m) { expect(m.Postfix_GetMailboxCount(w.domain) == 1000, "GetMailboxCount"); },
         readings("@" + w.domain, {VPASSWDFILE}),
         statements({"select COUNT(email) from virtual_users where email " + inDomain})},
        {Query, "IsMailboxExists",
         [w](auto& m) { expect(m.Postfix_IsMailboxExists(w.address), "IsMailboxExists"); },
         readings(w.address, {VSHADOWFILE}), statements({"select 1 from virtual_users" + byEmail})},
    };
}

Operations quotaOperations(const World& w)
{
    const auto update = [&](const std::string& quota) {
        return statements({"update virtual_users set quota = '" + quota +
                           "' where email = " + quoted(w.address)});
    };
    const Steps unlimitedTest = connected({"select email from  virtual_users where quota = '0'"});
    const Steps total =
        connected({"select SUM(quota) from virtual_users where email like '%@" + w.domain + "'"});
    return {
        {Change,
         "VQuota AddQuota",
         returns(PostfixResult::Done,
                 [w](auto& m) { return m.Postfix_VQuota(w.newAddress, Quota, "AddQuota"); }),
         floorOf(backedUp(VQUOTAFILE) + published(VQUOTAFILE)),
         {}},
        {Change, "VQuota UpdateQuota",
         returns(PostfixResult::QuotaUpdated,
                 [w](auto& m) { return m.Postfix_VQuota(w.address, "2097152", "UpdateQuota"); }),
         floorOf(backedUp(VPASSWDFILE, ".editbak") + rewritten(VPASSWDFILE) + changed(VQUOTAFILE)),
         update("2097152")},
        {Change, "VQuota DeleteQuota",
         returns(PostfixResult::Done,
                 [w](auto& m) { return m.Postfix_VQuota(w.address, "", "DeleteQuota"); }),
         floorOf(backedUp(VPASSWDFILE, ".delbak") + rewritten(VPASSWDFILE) + changed(VQUOTAFILE)),
         update("0")},
        {Query, "RetrieveQuota",
         [w](auto& m) {
             expect(m.Postfix_RetrieveQuota(w.address).find(Quota) != std::string::npos,
                    "RetrieveQuota");
         },
         readings(w.address, {VQUOTAFILE}),
         statements({"select quota from virtual_users where email = " + quoted(w.address)})},
        {Query, "RetrieveDomainQuota",
         [w](auto& m) {
             long long sum = 0;
             expect(m.Postfix_RetrieveDomainQuota(w.domain, sum) != PostfixResult::TotalNotRead,
                    "RetrieveDomainQuota");
         },
         readings("@" + w.domain, {VQUOTAFILE}),
         floorOf(w.isMostlyUnlimited() ? unlimitedTest : unlimitedTest + total)},
        {Query,
         "IsDomainHasUnlimitedQuota",
         [w](auto& m) {
             expect(m.Postfix_IsDomainHasUnlimitedQuota(w.domain) == w.isMostlyUnlimited(),
                    "IsDomainHasUnlimitedQuota");
         },
         {},
         floorOf(unlimitedTest)},
    };
}

Operations aliasOperations(const World& w)
{
    const std::string inDomain = "like '%@" + w.domain + "'";
    const std::string bySource = "select source from  virtual_aliases where source = ";
    const std::string isForwarded =
        bySource + quoted(w.plainAddress) + " and destination != " + quoted(w.plainAddress);
    const std::string newList = "newlist@" + w.domain;
    const std::string twoMembers = w.address + "," + Elsewhere;
    const Statements twoRows = {"insert into virtual_aliases values " + std::string("('") +
                                newList + "','" + w.address + "'),('" + newList + "','" +
                                Elsewhere + "')"};
    const Steps added = backedUp(VALIASFILE) + published(VALIASFILE);
    const Sides lists = {
        {"floor",
         connected(
             {"select distinct(virtual_aliases.source) from virtual_aliases, virtual_users where "
              "virtual_aliases.source not in (select email from virtual_users where email " +
              inDomain + ") and virtual_aliases.source " + inDomain +
              " and virtual_aliases.source!='@" + w.domain + "'"})},
        {"scans", connected({"select count(*) from virtual_aliases where source " + inDomain,
                             "select count(*) from virtual_users where email " + inDomain})},
    };
    return {
        {Change, "VAlias AddAlias",
         returns(PostfixResult::AliasAdded,
                 [w](auto& m) { return m.Postfix_VAlias(w.plainAddress, Elsewhere, "AddAlias"); }),
         floorOf(added),
         floorOf(
             connected({isForwarded}) +
             connected({deletion(w.plainAddress) + " and destination = " + quoted(w.plainAddress),
                        insertion(w.plainAddress, Elsewhere)}))},
        {Change, "VAlias UpdateAlias",
         returns(PostfixResult::Updated,
                 [w](auto& m) {
                     return m.Postfix_VAlias(w.address, "other@elsewhere.test", "UpdateAlias");
                 }),
         floorOf(changed(VALIASFILE)),
         statements({deletion(w.address), insertion(w.address, "other@elsewhere.test")})},
        {Change, "VAlias DeleteAlias",
         returns(PostfixResult::AliasDeleted,
                 [w](auto& m) { return m.Postfix_VAlias(w.address, "", "DeleteAlias"); }),
         floorOf(changed(VALIASFILE)),
         statements({deletion(w.address), insertion(w.address, w.address)})},
        {Change, "VList AddList",
         [=](auto& m) {
             VectorString members = {twoMembers};
             expect(m.Postfix_VList(newList, &members, "AddList") == PostfixResult::ListAdded,
                    "AddList");
         },
         floorOf(added), floorOf(connected({bySource + quoted(newList)}) + connected(twoRows))},
        {Change, "VList UpdateList",
         [=](auto& m) {
             VectorString members = {twoMembers};
             expect(m.Postfix_VList(w.list, &members, "UpdateList") == PostfixResult::ListUpdated,
                    "UpdateList");
         },
         floorOf(changed(VALIASFILE)), floorOf(connected({deletion(w.list), twoRows.front()}))},
        {Change, "VList DeleteList",
         returns(PostfixResult::ListDeleted,
                 [w](auto& m) { return m.Postfix_VList(w.list, nullptr, "DeleteList"); }),
         floorOf(changed(VALIASFILE)), statements({deletion(w.list)})},
        {Query,
         "GetAliasList",
         [w](auto& m) {
             VectorString found;
             expect(m.Postfix_GetAliasList(w.address, &found) == PostfixResult::Done &&
                        !found.empty(),
                    "GetAliasList");
         },
         readings(w.address, {VALIASFILE}),
         {}},
        {Query, "RetrieveAlias",
         [w](auto& m) { expect(m.Postfix_RetrieveAlias(w.alias) != "", "RetrieveAlias"); },
         readings(w.alias, {VALIASFILE}),
         statements({"select destination from virtual_aliases where source = " + quoted(w.alias) +
                     " and destination != " + quoted(w.alias)})},
        {Query,
         "IsVAliasExists",
         [w](auto& m) { expect(!m.Postfix_IsVAliasExists(w.plainAddress), "IsVAliasExists"); },
         {},
         statements({isForwarded})},
        {Query, "GetLists",
         [w](auto& m) {
             VectorString found;
             expect(m.Postfix_GetLists(w.domain, &found) == PostfixResult::Done && !found.empty(),
                    "GetLists");
         },
         readings(w.domain, {VALIASFILE, VSHADOWFILE}), lists},
        {Query,
         "GetLists, nearly every entry",
         [](auto& m) {
             VectorString found;
             expect(m.Postfix_GetLists(".test", &found) == PostfixResult::Done && !found.empty(),
                    "GetLists");
         },
         readings(".test", {VALIASFILE, VSHADOWFILE}),
         {}},
        {Query, "GetListSettings",
         [w](auto& m) {
             VectorString found;
             expect(m.Postfix_GetListSettings(w.list, &found) == PostfixResult::Done &&
                        !found.empty(),
                    "GetListSettings");
         },
         readings(w.list, {VALIASFILE}),
         statements({"select destination from virtual_aliases where source= " + quoted(w.list)})},
        {Query,
         "IsVListExists",
         [w](auto& m) { expect(m.Postfix_IsVListExists(w.list), "IsVListExists"); },
         {},
         statements({bySource + quoted(w.list)})},
    };
}

Operations catchAllOperations(const World& w)
{
    const std::string bySource = " where source = '@" + w.domain + "'";
    const std::string test = "select destination from  virtual_aliases" + bySource;
    return {
        {Change, "UpdateCatchAllAddress",
         returns(PostfixResult::CatchAllSet,
                 [w](auto& m) { return m.Postfix_UpdateCatchAllAddress(w.domain, w.newUser); }),
         floorOf(changed(VMAPSFILE, ".CABackup")),
         floorOf(connected({test}) + connected({"update virtual_aliases set destination='" +
                                                w.newAddress + "'" + bySource}))},
        {Change, "RemoveCatchAllAddress",
         returns(PostfixResult::CatchAllRemoved,
                 [w](auto& m) { return m.Postfix_RemoveCatchAllAddress(w.domain); }),
         floorOf(changed(VMAPSFILE, ".CABackup")),
         statements({"delete from virtual_aliases" + bySource})},
        {Query, "RetreiveCatchAllAddress",
         [w](auto& m) {
             std::string found;
             expect(m.Postfix_RetreiveCatchAllAddress(w.domain, found) ==
                        PostfixResult::CatchAllFound,
                    "RetreiveCatchAllAddress");
         },
         readings("@" + w.domain, {VMAPSFILE}, backedUp(VMAPSFILE, ".CABackup")),
         statements({"select destination from virtual_aliases where source='@" + w.domain + "'"})},
        {Query,
         "IsCatchAllExists",
         [w](auto& m) { expect(m.Postfix_IsCatchAllExists(w.domain), "IsCatchAllExists"); },
         {},
         statements({test})},
    };
}

} // namespace

Operations libraryOperations(const World& world)
{
    Operations all;
    for (const auto part : {domainOperations, mailboxOperations, quotaOperations, aliasOperations,
                            catchAllOperations})
        for (Operation& operation : part(world))
            all.push_back(std::move(operation));
    return all;
}

std::string insertion(const std::string& source, const std::string& target)
{
    return "insert into virtual_aliases values ('" + source + "','" + target + "')";
}

Statements insertions(const std::string& address)
{
    std::string mailbox = "insert into virtual_users values ('" + address;
    mailbox.append("','$1$abcdefgh$0123456789012345678901',").append(Quota).append(")");
    return {mailbox, insertion(address, address)};
}

std::string newUser(int number)
{
    return "new" + std::to_string(number);
}

void createMailbox(PostfixManager& manager, const World& world, int number)
{
    const std::string user = newUser(number);
    Record record(world.domain, user + "@" + world.domain);
    const int result = manager.Postfix_CreateMailbox(&record.user, world.domain, user, Quota);
    expect(result == PostfixResult::MailboxCreated, "CreateMailbox");
}

void expect(bool isAsExpected, const std::string& what)
{
    if (!isAsExpected)
        fail("another answer than expected of " + what);
}
