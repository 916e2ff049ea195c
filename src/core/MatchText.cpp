#include "core/MatchText.h"

#include "core/Unicode.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <unordered_map>

namespace pindle::detail {
namespace {

struct CharacterInfo
{
    uint32_t id = 0; // of the character's canonical form
    uint8_t characterClass = 0;
};

struct TextHash
{
    using is_transparent = void;
    size_t operator()(std::u16string_view text) const
    {
        return std::hash<std::u16string_view>()(text);
    }
};

// Every character other than plain ASCII that a name or query has contained, keyed by its
// text as written, with its canonical id and its class. Ids are handed out per canonical form,
// so canonically equivalent characters share one. There is one table for the process: the scan
// thread describes names with it and every panel its queries, and their ids must agree. Any
// thread takes its lock around a use.
class CharacterTable
{
public:
    std::unique_lock<std::mutex> lock() { return std::unique_lock(m_mutex); }

    // The caller holds the lock.
    CharacterInfo info(std::u16string_view character)
    {
        if (character.size() == 1 && character[0] < 0x80)
            return {character[0], asciiClasses[character[0]]};
        const auto known = m_byText.find(character);
        if (known != m_byText.end())
            return known->second;

        std::u16string form = Unicode::decomposed(character);
        CharacterInfo made;
        if (form.size() == 1 && form[0] < 0x80) {
            made.id = form[0];
        } else {
            const auto [entry, isNew] = m_byForm.try_emplace(std::move(form), m_nextId);
            if (isNew)
                ++m_nextId;
            made.id = entry->second;
        }
        made.characterClass = characterClass(character);
        m_byText.emplace(std::u16string(character), made);
        return made;
    }

private:
    std::mutex m_mutex;
    std::unordered_map<std::u16string, CharacterInfo, TextHash, std::equal_to<>> m_byText;
    std::unordered_map<std::u16string, uint32_t> m_byForm;
    uint32_t m_nextId = 128;
};

CharacterTable &characterTable()
{
    static CharacterTable table;
    return table;
}

} // namespace

uint8_t characterClass(std::u16string_view character)
{
    if (character.size() == 1 && character[0] < 0x80)
        return asciiClasses[character[0]];
    uint8_t result = 0;
    if (Unicode::isLowercase(character))
        result |= lowercaseClass;
    if (Unicode::isUppercase(character))
        result |= uppercaseClass;
    if (Unicode::isLetter(character))
        result |= letterClass;
    return result;
}

const UnicodeDescription &TextDescriber::describe(std::u16string_view text)
{
    UnicodeDescription &out = m_description;
    const std::vector<int32_t> &bounds = m_bounds;
    const std::vector<int32_t> &loweredBounds = m_loweredBounds;
    const std::u16string &lowered = m_lowered;
    m_breaks.boundaries(text, m_bounds);
    const auto n = int32_t(bounds.size() - 1);
    out.count = n;
    out.mask = 0;
    out.ids.clear();
    out.flags.clear();
    Unicode::lowercased(text, m_lowered);
    m_breaks.boundaries(lowered, m_loweredBounds);
    // Characters are paired with their lowercase by position; when lowercasing merged some,
    // the pairing is lost and the text never matches (as in FuzzyMatch::match).
    out.isMatchable = loweredBounds.size() >= bounds.size();
    if (!out.isMatchable)
        return out;
    out.ids.resize(size_t(n));
    out.flags.resize(size_t(n));
    uint32_t *const ids = out.ids.data();
    uint8_t *const flags = out.flags.data();
    uint64_t mask = 0;
    CharacterTable &table = characterTable();
    const auto guard = table.lock();
    uint8_t previousClass = 0;
    for (size_t j = 0; j < size_t(n); ++j) {
        // Plain ASCII characters, most of most texts, are their own ids and need no lookup.
        const auto from = size_t(bounds[j]);
        const auto size = size_t(bounds[j + 1]) - from;
        const uint8_t currentClass = size == 1 && text[from] < 0x80
                                         ? asciiClasses[text[from]]
                                         : table.info(text.substr(from, size)).characterClass;
        flags[j] = positionFlags(j == 0, previousClass, currentClass);
        previousClass = currentClass;
        const auto loweredFrom = size_t(loweredBounds[j]);
        const auto loweredSize = size_t(loweredBounds[j + 1]) - loweredFrom;
        if (loweredSize == 1 && lowered[loweredFrom] < 0x80) {
            ids[j] = lowered[loweredFrom];
            mask |= asciiMaskBits[ids[j]];
        } else {
            ids[j] = table.info(std::u16string_view(lowered).substr(loweredFrom, loweredSize)).id;
            mask |= maskBit(ids[j]);
        }
    }
    out.mask = mask;
    return out;
}

PreparedQuery prepareQuery(std::u16string_view query)
{
    PreparedQuery prepared;
    if (Unicode::isPlainAscii(query)) {
        prepared.ids.reserve(query.size());
        for (const char16_t c : query)
            prepared.ids.push_back(asciiLower(c));
    } else {
        const std::u16string lowered = Unicode::lowercased(query);
        const std::vector<int32_t> bounds = Unicode::clusterBoundaries(lowered);
        CharacterTable &table = characterTable();
        const auto guard = table.lock();
        for (size_t c = 0; c + 1 < bounds.size(); ++c)
            prepared.ids.push_back(table
                                       .info(std::u16string_view(lowered).substr(
                                           size_t(bounds[c]), size_t(bounds[c + 1] - bounds[c])))
                                       .id);
    }
    for (const uint32_t id : prepared.ids) {
        prepared.mask |= maskBit(id);
        prepared.isAscii = prepared.isAscii && id < 0x80;
    }
    return prepared;
}

} // namespace pindle::detail
