// The result codes of PostfixManager's operations. Each operation's comment in PostfixManager.h
// says which of them it returns; hosts compare against the exact number.
#ifndef QV_POSTFIXRESULTS_H
#define QV_POSTFIXRESULTS_H

namespace PostfixResult
{

// Steps of larger operations: changes of a map, and a domain's list entry, tree and mailbox lines.
constexpr int Done = 0;
constexpr int Failed = 1;

// Queries whose map or database could not be read. A mailbox count of 63 looks the same.
constexpr int NotRead = 63;

// What a panel asks for.
constexpr int DomainCreated = 303;
constexpr int DomainNotCreated = 304;
constexpr int MailboxCreated = 305;
constexpr int MailboxNotCreated = 306; // also: an account line could not be written
constexpr int MailboxDeleted = 307;
constexpr int MailboxNotDeleted = 308;
constexpr int ListExists = 309;
constexpr int ListAdded = 310;
constexpr int DomainDeleted = 317;
constexpr int ListDeleted = 319;
constexpr int Updated = 321; // a mailbox or an alias
constexpr int ListUpdated = 323;
constexpr int QuotaUpdated = 325;
constexpr int AliasAdded = 327;
constexpr int AliasDeleted = 329;
constexpr int CatchAllNotSet = 331;
constexpr int CatchAllSet = 332;
constexpr int CatchAllRemoved = 333;
constexpr int CatchAllNotRemoved = 334;

// Where 0 is the failure: domain deletion (a step on files), aliases and lists.
constexpr int RequestFailed = 0;

// Postfix_DeleteMailboxUser: the group "qvadmin" is unknown.
constexpr int GroupUnknown = -1;

// Postfix_RetrieveDomainQuota, and the two answers of Postfix_RetreiveCatchAllAddress.
constexpr int TotalNotRead = 0;
constexpr int TotalRead = 1;
constexpr int TotalUnlimited = 2;
constexpr int CatchAllFound = 1;
constexpr int CatchAllNotFound = 0;

} // namespace PostfixResult

#endif
