#include "maps/PackedNames.h"

#include "maps/MapLines.h"

#include <algorithm>
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

// Eight characters at a time, because each account's name passes here. Letters count without their
// case.
std::uint64_t hashIgnoringCase(std::string_view text)
{
    constexpr std::size_t Step = sizeof(std::uint64_t);
    std::uint64_t hash = text.size();
    if (text.size() < Step) {
        for (const char c : text)
            mix(hash, static_cast<unsigned char>(c));
        return hash;
    }
    for (std::size_t i = 0; i < text.size() - Step; i += Step)
        mix(hash, eightAt(text.data() + i));
    mix(hash, eightAt(text.data() + text.size() - Step));
    return hash;
}

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
    ++m_most;
}

void PackedNames::strikeOut(std::string_view name)
{
    if (m_slots.empty())
        index();
    const std::uint64_t hash = hashIgnoringCase(name);
    __builtin_prefetch(&firstSlotOf(hash));
    m_sought[m_soughtCount].name = name;
    m_sought[m_soughtCount].hash = hash;
    if (++m_soughtCount == Together)
        strikeOutSought();
}

void PackedNames::visitRest(const std::function<void(std::string_view name)>& take)
{
    strikeOutSought();
    auto repeated = m_repeated.begin();
    visitAll([&](Place place, std::string_view name) {
        const bool isRepeated = repeated != m_repeated.end() && repeated->first == place;
        if (*at(isRepeated ? (repeated++)->second : place) == Left)
            take(name);
    });
}

void PackedNames::visitAll(
    const std::function<void(Place place, std::string_view name)>& take) const
{
    for (std::size_t block = 0; block < m_blocks.size(); ++block)
        for (Place offset = 0; offset < m_blocks[block].size;) {
            const Place place = (Place{block} << OffsetBits) + offset;
            const std::string_view name = nameAt(place);
            take(place, name);
            offset += HeadSize + name.size();
        }
}

void PackedNames::index()
{
    std::size_t size = 2;
    while (size < 2 * m_count)
        size *= 2;
    m_slots.resize(size);
    m_sought.resize(Together);

    std::vector<std::pair<Place, std::uint64_t>> next;
    const auto enterNext = [&] {
        for (const auto& [place, hash] : next)
            enter(place, hash);
        next.clear();
    };
    visitAll([&](Place place, std::string_view name) {
        next.emplace_back(place, hashIgnoringCase(name));
        __builtin_prefetch(&firstSlotOf(next.back().second), 1);
        if (next.size() == Together)
            enterNext();
    });
    enterNext();
}

void PackedNames::enter(Place place, std::uint64_t hash)
{
    Slot& slot = slotOf(nameAt(place), hash);
    if (slot == 0)
        slot = (hash & ~PlaceMask) | (place + 1);
    else
        m_repeated.emplace_back(place, (slot & PlaceMask) - 1);
}

void PackedNames::strikeOutSought()
{
    for (std::size_t i = 0; i < m_soughtCount; ++i) {
        const Slot slot = firstSlotOf(m_sought[i].hash);
        if (slot != 0 && ((slot ^ m_sought[i].hash) & ~PlaceMask) == 0)
            __builtin_prefetch(at((slot & PlaceMask) - 1), 1);
    }
    for (std::size_t i = 0; i < m_soughtCount; ++i) {
        const Slot slot = slotOf(m_sought[i].name, m_sought[i].hash);
        if (slot == 0 || stateAt((slot & PlaceMask) - 1) == StruckOut)
            continue;
        stateAt((slot & PlaceMask) - 1) = StruckOut;
        --m_most;
    }
    m_soughtCount = 0;
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
