// The result codes of PostfixManager's operations. Each operation's comment in PostfixManager.h
// says which of them it returns; hosts compare against the exact number.
#ifndef QV_POSTFIXRESULTS_H
#define QV_POSTFIXRESULTS_H

namespace PostfixResult
{

// Building blocks: the map editors and the domain's steps.
constexpr int Done = 0;
constexpr int Failed = 1;

constexpr int DomainCreated = 303;
constexpr int DomainNotCreated = 304;
constexpr int MailboxCreated = 305;
constexpr int MailboxNotCreated = 306; // also: an account line could not be written
constexpr int QuotaUpdated = 325;

} // namespace PostfixResult

#endif
