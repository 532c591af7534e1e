#ifndef QV_NAMEFILTER_H
#define QV_NAMEFILTER_H

#include <cstdint>
#include <string_view>
#include <vector>

// A hash of a name, in which the case of letters does not count.
std::uint64_t hashIgnoringCase(std::string_view name);

// NameFilter - tells of most names that they are not among those added, in two to four bytes a name
//
// A name is known by its hash alone, so the filter may take another for one of its own.
class NameFilter
{
public:
    // count: how many names are added at most, so that few others pass.
    explicit NameFilter(std::size_t count = 0);

    void add(std::uint64_t hash) { word(hash) |= bitsOf(hash); }
    bool mayHave(std::uint64_t hash) const { return (bitsOf(hash) & ~word(hash)) == 0; }

    // The memory that add and mayHave touch.
    const void* memoryOf(std::uint64_t hash) const { return &word(hash); }

private:
    // Six bits of a word.
    static std::uint64_t bitsOf(std::uint64_t hash)
    {
        constexpr std::uint64_t Multiplier = 0xD6E8FEB86659FD93;
        std::uint64_t bits = 0;
        std::uint64_t numbers = hash * Multiplier;
        for (int i = 0; i < 6; ++i) {
            bits |= std::uint64_t{1} << (numbers >> 58U);
            numbers <<= 6U;
        }
        return bits;
    }
    std::uint64_t& word(std::uint64_t hash) { return m_words[hash & (m_words.size() - 1)]; }
    const std::uint64_t& word(std::uint64_t hash) const
    {
        return m_words[hash & (m_words.size() - 1)];
    }

    std::vector<std::uint64_t> m_words; // a power of two
};

#endif
