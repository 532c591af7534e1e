#include "maps/MapLines.h"

#include "stage/Stage.h"

#include <algorithm>

bool standsFor(std::string_view line, std::string_view searched, std::string_view text)
{
    return openStage() == nullptr ? placeOf(text, markOf(text), searched) != std::string_view::npos
                                  : wholeName(line) == text;
}

bool liesIn(std::string_view line, std::string_view searched, std::string_view domain)
{
    return openStage() == nullptr ? contains(searched, domain)
                                  : textAfter(wholeName(line), '@') == domain;
}

bool liesIn(std::string_view lineWithDomain, std::string_view domain)
{
    return openStage() == nullptr || textAfter(wholeName(lineWithDomain), '@') == domain;
}

bool isOfDomain(std::string_view line, std::string_view found, std::string_view domain)
{
    return (openStage() == nullptr ? found : textAfter(wholeName(line), '@')) == domain;
}

bool leadsTo(std::string_view searched, std::string_view address)
{
    if (openStage() == nullptr)
        return contains(searched, address);
    while (!searched.empty()) {
        const std::size_t end = std::min(searched.find_first_of(", \t"), searched.size());
        if (searched.substr(0, end) == address)
            return true;
        searched.remove_prefix(std::min(end + 1, searched.size()));
    }
    return false;
}
