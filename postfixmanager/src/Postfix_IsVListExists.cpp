#include "Backend.h"

// Any source counts, a mailbox's self row included: its address is taken.
bool PostfixManager::Postfix_IsVListExists(std::string Address)
{
    return existsInTable(*this,
                         "select source from  virtual_aliases where source = '" + Address + "'");
}
