#include "Backend.h"

bool PostfixManager::Postfix_IsCatchAllExists(std::string DomainName)
{
    return existsInTable(*this, "select destination from  virtual_aliases where source = '@" +
                                    DomainName + "'");
}
