#include "trimRightSpaces.h"

void trimRightSpaces(std::string& szWord)
{
    const std::string::size_type first = szWord.find_first_not_of(" \t");
    if (first == std::string::npos) {
        szWord.clear();
        return;
    }
    szWord = szWord.substr(first, szWord.find_last_not_of(" \t") - first + 1);
}
