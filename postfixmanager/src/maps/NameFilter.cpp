#include "maps/NameFilter.h"

#include <cstring>

namespace
{

std::uint64_t eightAt(const char* text)
{
    std::uint64_t eight;
    memcpy(&eight, text, sizeof eight);
    return eight;
}

void mix(std::uint64_t& hash, std::uint64_t characters)
{
    constexpr std::uint64_t CaseBits = 0x2020202020202020;
    constexpr std::uint64_t Multiplier = 0x9E3779B97F4A7C15;
    hash = (hash ^ (characters | CaseBits)) * Multiplier;
    hash ^= hash >> 32;
}

std::size_t wordsFor(std::size_t count)
{
    constexpr std::size_t NamesPerWord = 4;
    std::size_t words = 1;
    while (words < count / NamesPerWord)
        words *= 2;
    return words;
}

} // namespace

// Eight characters at a time, because each account's name passes here.
std::uint64_t hashIgnoringCase(std::string_view name)
{
    constexpr std::size_t Step = sizeof(std::uint64_t);
    std::uint64_t hash = name.size();
    if (name.size() < Step) {
        for (const char c : name)
            mix(hash, static_cast<unsigned char>(c));
        return hash;
    }
    for (std::size_t i = 0; i < name.size() - Step; i += Step)
        mix(hash, eightAt(name.data() + i));
    mix(hash, eightAt(name.data() + name.size() - Step));
    return hash;
}

NameFilter::NameFilter(std::size_t count) : m_words(wordsFor(count)) {}
