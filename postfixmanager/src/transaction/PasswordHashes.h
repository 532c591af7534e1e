#ifndef QV_PASSWORDHASHES_H
#define QV_PASSWORDHASHES_H

#include "stage/Stage.h"

#include <string>
#include <utility>
#include <vector>

// Stages the password field of each address, as PostfixTransaction::storePasswordHashes says. Throws
// a Refusal for a field that no account can have, and for an address that has no mailbox.
void stagePasswordHashes(Stage& stage,
                         const std::vector<std::pair<std::string, std::string>>& hashes);

#endif
