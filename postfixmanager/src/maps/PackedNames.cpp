#include "maps/PackedNames.h"

#include "maps/MapLines.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace
{

constexpr char Left = 'l';
constexpr char StruckOut = 's';

// What stands before the letters of a name: its state, and how many they are.
using Length = std::uint32_t;
constexpr std::size_t HeadSize = 1 + sizeof(Length);

constexpr int OffsetBits = 20;
constexpr std::size_t BlockSize = std::size_t{1} << OffsetBits;
constexpr std::uint64_t OffsetMask = BlockSize - 1;
constexpr int PlaceBits = 40;
constexpr std::uint64_t PlaceMask = (std::uint64_t{1} << PlaceBits) - 1;

// How many names are looked up together. The memory that all of them need is requested before the
// first is read: to wait for it name by name would take most of the time.
constexpr std::size_t Together = 32;

// From this many names on, their index is too large for the caches of a processor.
constexpr std::size_t ManyNames = 65536;

// As soon as one in so many may have to be struck out, all are indexed.
constexpr std::size_t ShareFound = 16;

} // namespace

void PackedNames::add(std::string_view name)
{
    const auto length = static_cast<Length>(name.size());
    const std::size_t size = HeadSize + length;
    if (m_blocks.empty() || m_blocks.back().size + size > BlockSize)
        m_blocks.push_back({std::unique_ptr<char[]>(new char[std::max(size, BlockSize)]), 0});
    Block& block = m_blocks.back();
    char* const head = block.text.get() + block.size;
    *head = Left;
    memcpy(head + 1, &length, sizeof length);
    memcpy(head + HeadSize, name.data(), length);
    block.size += size;
    ++m_count;
    ++m_rest;
}

void PackedNames::strikeOut(std::string_view name)
{
    if (m_slots.empty() && m_sought.empty()) {
        if (m_count < ManyNames)
            indexAll();
        else
            makeFilter();
    }
    const std::uint64_t hash = hashIgnoringCase(name);
    if (m_sought.empty()) { // few names: nothing has to be waited for
        strikeOut(name, hash);
        return;
    }
    __builtin_prefetch(m_slots.empty() ? m_filter.memoryOf(hash) : &firstSlotOf(hash), 1);
    m_sought[m_soughtCount].name = name;
    m_sought[m_soughtCount].hash = hash;
    if (++m_soughtCount == Together)
        lookUpSought();
}

std::size_t PackedNames::countRest()
{
    if (m_soughtCount > 0)
        lookUpSought();
    if (!m_found.empty())
        indexFound();
    return m_rest;
}

void PackedNames::takeRest(const std::function<void(std::string_view name)>& take)
{
    for (const auto& [repeated, first] : m_repeated)
        stateAt(repeated) = stateAt(first);
    for (std::size_t block = 0; block < m_blocks.size(); ++block) {
        visitBlock(block, [&](Place place, std::string_view name) {
            if (stateAt(place) == Left)
                take(name);
        });
        m_blocks[block] = {};
    }
}

template <class Take> void PackedNames::visitBlock(std::size_t block, const Take& take) const
{
    for (Place offset = 0; offset < m_blocks[block].size;) {
        const Place place = (Place{block} << OffsetBits) + offset;
        const std::string_view name = nameAt(place);
        take(place, name);
        offset += HeadSize + name.size();
    }
}

// Hands over all names with their hashes, and requests the memory of each beforehand.
template <class MemoryOf, class Take>
void PackedNames::visitHashed(const MemoryOf& memoryOf, const Take& take) const
{
    std::array<Hashed, Together> next{};
    std::size_t count = 0;
    const auto takeNext = [&] {
        std::for_each(next.begin(), next.begin() + count, take);
        count = 0;
    };
    for (std::size_t block = 0; block < m_blocks.size(); ++block)
        visitBlock(block, [&](Place place, std::string_view name) {
            const std::uint64_t hash = hashIgnoringCase(name);
            __builtin_prefetch(memoryOf(hash), 1);
            next[count] = {place, hash};
            if (++count == Together)
                takeNext();
        });
    takeNext();
}

void PackedNames::makeFilter()
{
    m_filter = NameFilter(m_count);
    m_sought.resize(Together);
    visitHashed([this](std::uint64_t hash) { return m_filter.memoryOf(hash); },
                [this](const Hashed& name) { m_filter.add(name.hash); });
}

void PackedNames::indexAll()
{
    makeSlots(m_count);
    visitHashed([this](std::uint64_t hash) { return &firstSlotOf(hash); },
                [this](const Hashed& name) { enter(name); });
}

void PackedNames::indexFound()
{
    NameFilter found(m_found.size());
    for (const Sought& sought : m_found)
        found.add(sought.hash);
    std::vector<Hashed> names;
    visitHashed([&](std::uint64_t hash) { return found.memoryOf(hash); },
                [&](const Hashed& name) {
                    if (found.mayHave(name.hash))
                        names.push_back(name);
                });
    makeSlots(names.size());
    for (const Hashed& name : names)
        enter(name);
    strikeOutAll(m_found, m_found.size());
}

void PackedNames::makeSlots(std::size_t count)
{
    std::size_t size = 2;
    while (size < 2 * count)
        size *= 2;
    m_slots.resize(size);
}

void PackedNames::enter(const Hashed& name)
{
    Slot& slot = slotOf(nameAt(name.place), name.hash);
    if (slot == 0)
        slot = (name.hash & ~PlaceMask) | (name.place + 1);
    else
        m_repeated.emplace_back(name.place, (slot & PlaceMask) - 1);
}

void PackedNames::lookUpSought()
{
    if (m_slots.empty())
        filterSought();
    else
        strikeOutAll(m_sought, m_soughtCount);
    m_soughtCount = 0;
}

void PackedNames::filterSought()
{
    for (std::size_t i = 0; i < m_soughtCount; ++i)
        if (m_filter.mayHave(m_sought[i].hash))
            m_found.push_back(m_sought[i]);
    if (m_found.size() < m_count / ShareFound)
        return;
    indexAll();
    strikeOutAll(m_found, m_found.size());
    m_found.clear();
}

void PackedNames::strikeOutAll(const std::vector<Sought>& names, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        const Slot slot = firstSlotOf(names[i].hash);
        if (slot != 0 && ((slot ^ names[i].hash) & ~PlaceMask) == 0)
            __builtin_prefetch(at((slot & PlaceMask) - 1), 1);
    }
    for (std::size_t i = 0; i < count; ++i)
        strikeOut(names[i].name, names[i].hash);
}

void PackedNames::strikeOut(std::string_view name, std::uint64_t hash)
{
    const Slot slot = slotOf(name, hash);
    if (slot == 0 || stateAt((slot & PlaceMask) - 1) == StruckOut)
        return;
    stateAt((slot & PlaceMask) - 1) = StruckOut;
    --m_rest;
}

PackedNames::Slot& PackedNames::firstSlotOf(std::uint64_t hash)
{
    return m_slots[hash & (m_slots.size() - 1)];
}

// The slot of the name, or the empty one where it would be.
PackedNames::Slot& PackedNames::slotOf(std::string_view name, std::uint64_t hash)
{
    const std::size_t last = m_slots.size() - 1;
    for (std::size_t i = hash & last;; i = (i + 1) & last) {
        Slot& slot = m_slots[i];
        if (slot == 0 || (((slot ^ hash) & ~PlaceMask) == 0 &&
                          equalIgnoringCase(nameAt((slot & PlaceMask) - 1), name)))
            return slot;
    }
}

const char* PackedNames::at(Place place) const
{
    return m_blocks[place >> OffsetBits].text.get() + (place & OffsetMask);
}

char& PackedNames::stateAt(Place place)
{
    return m_blocks[place >> OffsetBits].text[place & OffsetMask];
}

std::string_view PackedNames::nameAt(Place place) const
{
    Length length;
    memcpy(&length, at(place) + 1, sizeof length);
    return {at(place) + HeadSize, length};
}
