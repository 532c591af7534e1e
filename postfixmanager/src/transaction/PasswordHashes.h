#ifndef QV_PASSWORDHASHES_H
#define QV_PASSWORDHASHES_H

#include "stage/Stage.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Throws a Refusal for a field that cannot be stored. The reason leaves the field out, which is a
// secret.
void checkHash(const std::string& address, std::string_view hash);

// Stages the password field of each address, as PostfixTransaction::storePasswordHashes says.
// Throws a Refusal for a field that cannot be stored and for an address without a mailbox.
void stagePasswordHashes(Stage& stage,
                         const std::vector<std::pair<std::string, std::string>>& hashes);

#endif
