#ifndef QV_PACKEDNAMES_H
#define QV_PACKEDNAMES_H

#include "maps/NameFilter.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// PackedNames - many names, of which some are struck out, whatever the case of their letters
//
// First all names are added, then some are struck out, then the rest is counted and taken. A name
// takes some ten bytes beside its letters, and twenty more where many are struck out; a set of the
// standard library would take several times the memory and the time.
class PackedNames
{
public:
    void add(std::string_view name);

    // Strikes out every name that is this one but for the case of letters.
    void strikeOut(std::string_view name);

    // How many names takeRest hands over at most.
    std::size_t countRest();

    // Hands over the names that are left, in the order in which they were added, and gives their
    // memory back meanwhile, so that they and what the caller makes of them need it but once. Only
    // after countRest.
    void takeRest(const std::function<void(std::string_view name)>& take);

private:
    // Where a name stands: the number of its block, and its offset there. At that offset stands the
    // state of the name, then how many letters it has, then these.
    using Place = std::uint64_t;

    // A slot of the index: 0 when it is empty, else a place plus one, with some bits of the name's
    // hash in the highest bits, so that few other names have to be compared.
    using Slot = std::uint64_t;

    struct Block {
        std::unique_ptr<char[]> text;
        std::size_t size = 0; // how much of the text is used
    };

    struct Hashed {
        Place place;
        std::uint64_t hash;
    };

    struct Sought {
        std::string name;
        std::uint64_t hash = 0;
    };

    template <class Take> void visitBlock(std::size_t block, const Take& take) const;
    template <class MemoryOf, class Take>
    void visitHashed(const MemoryOf& memoryOf, const Take& take) const;
    void makeFilter();
    void indexAll();
    void indexFound();
    void makeSlots(std::size_t count);
    void enter(const Hashed& name);
    void lookUpSought();
    void filterSought();
    void strikeOutAll(const std::vector<Sought>& names, std::size_t count);
    void strikeOut(std::string_view name, std::uint64_t hash);
    Slot& firstSlotOf(std::uint64_t hash);
    Slot& slotOf(std::string_view name, std::uint64_t hash);
    const char* at(Place place) const;
    char& stateAt(Place place);
    std::string_view nameAt(Place place) const;

    std::vector<Block> m_blocks; // one text that grows would be in memory twice meanwhile
    std::size_t m_count = 0;
    std::size_t m_rest = 0;
    std::vector<Slot> m_slots;                       // each different name once, by its hash
    std::vector<std::pair<Place, Place>> m_repeated; // a repeated name, and its first

    // Of very many names only those are indexed that may have to be struck out: until that is known,
    // the filter sorts out nearly all other names, and those that pass it are kept.
    NameFilter m_filter;
    std::vector<Sought> m_found;
    std::vector<Sought> m_sought; // names to be looked up, the first m_soughtCount
    std::size_t m_soughtCount = 0;
};

#endif
