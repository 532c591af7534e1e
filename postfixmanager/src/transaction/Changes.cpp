#include "transaction/Changes.h"

#include "maps/LineFaults.h"
#include "maps/LineReader.h"
#include "maps/MapLines.h"
#include "stage/CheckedFiles.h"

#include <algorithm>
#include <unordered_map>

namespace
{

// The lines of one of the two files that are compared. Empty lines are passed over.
class Side
{
public:
    explicit Side(const std::string& path, const std::string& text = "", std::size_t from = 0)
        : m_path(path), m_reader(path, text, from)
    {
        next();
    }

    bool atEnd() const { return m_atEnd; }
    std::string_view line() const { return m_line; }
    void next()
    {
        do
            m_atEnd = !m_reader.nextLine(m_line);
        while (!m_atEnd && m_line.empty());
        if (m_reader.error() != 0)
            refuse(m_path + " cannot be read: " + m_reader.reason());
    }

private:
    std::string m_path;
    LineReader m_reader;
    std::string_view m_line;
    bool m_atEnd = false;
};

// A removed and an added line of the same name are one change, or none when they are alike.
std::vector<LineChange> joinedByName(const std::vector<LineChange>& changes)
{
    std::unordered_map<std::string, std::size_t> gone; // by name, its place in the result
    std::vector<LineChange> joined;
    for (const LineChange& change : changes) {
        const std::string name(wholeName(change.before.empty() ? change.after : change.before));
        const auto partner = change.before.empty() ? gone.find(name) : gone.end();
        if (partner != gone.end()) {
            joined[partner->second].after = change.after;
            gone.erase(partner);
            continue;
        }
        if (change.after.empty())
            gone[name] = joined.size();
        joined.push_back(change);
    }
    const auto isNone = [](const LineChange& change) { return change.before == change.after; };
    joined.erase(std::remove_if(joined.begin(), joined.end(), isNone), joined.end());
    return joined;
}

void refuseNamesTwice(const StagedMap& staged, const std::vector<LineChange>& changes)
{
    std::unordered_map<std::string_view, int> counts;
    for (const LineChange& change : changes)
        if (change.before.empty())
            counts[wholeName(change.after)] = 0;
    if (counts.empty())
        return;
    const std::string only(counts.size() == 1 ? counts.begin()->first : std::string_view());
    for (Side lines(staged.copy(), only); !lines.atEnd(); lines.next()) {
        const auto count = counts.find(wholeName(lines.line()));
        if (count != counts.end() && ++count->second > 1)
            refuse(std::string(staged.map) + " would have two entries of " +
                   std::string(count->first));
    }
}

} // namespace

std::vector<LineChange> changesOf(const StagedMap& staged)
{
    std::vector<LineChange> changes;
    if (!staged.isChanged)
        return changes;

    // A staged copy keeps the order of its map: lines are dropped, replaced and added at the end.
    // Where lines were only added, the part that was copied need not be read.
    Side before(staged.map, "", staged.copiedSize);
    Side after(staged.copy(), "", staged.copiedSize);
    while (!before.atEnd()) {
        const bool isSame = !after.atEnd() && before.line() == after.line();
        const bool isThere =
            isSame || (!after.atEnd() && wholeName(before.line()) == wholeName(after.line()));
        if (!isThere)
            changes.push_back({std::string(before.line()), ""});
        else if (!isSame)
            changes.push_back({std::string(before.line()), std::string(after.line())});
        before.next();
        if (isThere)
            after.next();
    }
    for (; !after.atEnd(); after.next())
        changes.push_back({"", std::string(after.line())});
    return joinedByName(changes);
}

void checkChanges(const StagedMap& staged, const std::vector<LineChange>& changes)
{
    for (const LineChange& change : changes)
        if (!change.after.empty() && faultOfLine(staged.map, change.after) != nullptr)
            refuse(std::string(staged.map) + " would get a malformed entry of \"" +
                   std::string(wholeName(change.after)) + "\"");
    refuseNamesTwice(staged, changes);
}
