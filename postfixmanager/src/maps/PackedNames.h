#ifndef QV_PACKEDNAMES_H
#define QV_PACKEDNAMES_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// PackedNames - many names, of which some are struck out, whatever the case of their letters
//
// First all names are added, then some are struck out, then the rest is visited. A name takes some
// twenty bytes beside its letters; a set of the standard library would take several times the
// memory and the time.
class PackedNames
{
public:
    void add(std::string_view name);

    // Strikes out every name that is this one but for the case of letters.
    void strikeOut(std::string_view name);

    // Hands over the names that are left, in the order in which they were added.
    void visitRest(const std::function<void(std::string_view name)>& take);

    // How many names visitRest hands over at most.
    std::size_t most() const { return m_most; }

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

    struct Sought {
        std::string name;
        std::uint64_t hash = 0;
    };

    void visitAll(const std::function<void(Place place, std::string_view name)>& take) const;
    void index();
    void enter(Place place, std::uint64_t hash);
    void strikeOutSought();
    Slot& firstSlotOf(std::uint64_t hash);
    Slot& slotOf(std::string_view name, std::uint64_t hash);
    const char* at(Place place) const;
    char& stateAt(Place place);
    std::string_view nameAt(Place place) const;

    std::vector<Block> m_blocks; // one text that grows would be in memory twice meanwhile
    std::size_t m_count = 0;
    std::size_t m_most = 0;
    std::vector<Slot> m_slots;                       // each different name once, by its hash
    std::vector<std::pair<Place, Place>> m_repeated; // a repeated name, and its first
    std::vector<Sought> m_sought; // names to be struck out, the first m_soughtCount
    std::size_t m_soughtCount = 0;
};

#endif
