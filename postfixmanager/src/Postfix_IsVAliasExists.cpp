#include "Backend.h"

// A mailbox's self row is no forward.
bool PostfixManager::Postfix_IsVAliasExists(std::string Address)
{
    return existsInTable(*this, "select source from  virtual_aliases where source = '" + Address +
                                    "' and destination != '" + Address + "'");
}
