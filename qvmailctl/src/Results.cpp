#include "Results.h"

#include "Host.h"

#include <algorithm>

void refuse(const std::string& sentence)
{
    throw Stop{Status::Refused, sentence};
}

void notThere(const std::string& sentence)
{
    throw Stop{Status::NotThere, sentence};
}

void conclude(const Host& host, int code, std::initializer_list<int> successes,
              const std::string& failure)
{
    if (std::find(successes.begin(), successes.end(), code) != successes.end())
        return;
    std::string why = host.transaction.failure();
    if (why.empty())
        why = host.settings.onTables
                  ? "the database refused a statement or the connection was lost; see its log"
                  : "a map below /etc/vmail could not be read or written";
    std::string sentence =
        failure + ": " + why + " (the library answered " + std::to_string(code) + ")";
    if (host.transaction.isOpen())
        sentence += "; nothing was changed";
    throw Stop{Status::Failed, sentence};
}
