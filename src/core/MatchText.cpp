#include "core/MatchText.h"

#include "core/Unicode.h"

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
// so canonically equivalent characters share one.
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
        if (Unicode::isLowercase(character))
            made.characterClass |= lowercaseClass;
        if (Unicode::isUppercase(character))
            made.characterClass |= uppercaseClass;
        if (Unicode::isLetter(character))
            made.characterClass |= letterClass;
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

bool isPlainAscii(std::u16string_view text)
{
    for (const char16_t c : text)
        if (c >= 0x80 || c == u'\r')
            return false;
    return true;
}

void describeUnicode(UnicodeDescription &out, std::u16string_view text)
{
    const std::vector<int32_t> bounds = Unicode::clusterBoundaries(text);
    const auto n = int32_t(bounds.size() - 1);
    out.count = n;
    out.mask = 0;
    out.ids.clear();
    out.flags.clear();
    const std::u16string lowered = Unicode::lowercased(text);
    const std::vector<int32_t> loweredBounds = Unicode::clusterBoundaries(lowered);
    // Characters are paired with their lowercase by position; when lowercasing merged some,
    // the pairing is lost and the name never matches (as in FuzzyMatch::match).
    out.isMatchable = loweredBounds.size() >= bounds.size();
    if (!out.isMatchable)
        return;
    CharacterTable &table = characterTable();
    const auto guard = table.lock();
    uint8_t previousClass = 0;
    for (int32_t j = 0; j < n; ++j) {
        const std::u16string_view character = text.substr(
            size_t(bounds[size_t(j)]), size_t(bounds[size_t(j) + 1] - bounds[size_t(j)]));
        const uint8_t currentClass = table.info(character).characterClass;
        out.flags.push_back(positionFlags(j == 0, previousClass, currentClass));
        previousClass = currentClass;
        const std::u16string_view loweredCharacter = std::u16string_view(lowered).substr(
            size_t(loweredBounds[size_t(j)]),
            size_t(loweredBounds[size_t(j) + 1] - loweredBounds[size_t(j)]));
        out.ids.push_back(table.info(loweredCharacter).id);
        out.mask |= maskBit(out.ids.back());
    }
}

PreparedQuery prepareQuery(std::u16string_view query)
{
    PreparedQuery prepared;
    if (isPlainAscii(query)) {
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
        if (id < 0x80)
            prepared.asciiIds.push_back(id);
        prepared.hasK = prepared.hasK || id == 'k';
    }
    return prepared;
}

KernelScratch &scratch()
{
    thread_local KernelScratch instance;
    return instance;
}

std::optional<double> scoreUtf8(const PreparedQuery &query, std::string_view line)
{
    const auto m = int32_t(query.ids.size());
    if (m == 0)
        return std::nullopt;
    const bool isAscii = isPlainAscii(line);
    if (isAscii && !query.isAscii)
        return std::nullopt;
    // A character that lowercases to a plain ASCII one is that ASCII letter in either case, or
    // the Kelvin sign for k: so a line whose bytes don't hold the query's ASCII characters in
    // order can't match, unless a Kelvin sign stands in for a k.
    if (!occursInOrder(line, query.asciiIds.data(), int32_t(query.asciiIds.size()))) {
        constexpr std::string_view kelvinSign = "\xE2\x84\xAA";
        if (isAscii || !query.hasK || line.find(kelvinSign) == std::string_view::npos)
            return std::nullopt;
    }
    if (isAscii) {
        const auto n = int32_t(line.size());
        const std::optional<KernelOutcome> outcome =
            runKernel(AsciiName<char>{line.data(), n}, query.ids.data(), m, scratch());
        if (!outcome)
            return std::nullopt;
        return finalScore(outcome->total, n);
    }
    // Described in place rather than prepared: nothing is kept of a line.
    thread_local UnicodeDescription description;
    describeUnicode(description, Unicode::fromUtf8(line));
    if (!description.isMatchable || description.count < m || (query.mask & ~description.mask))
        return std::nullopt;
    const std::optional<KernelOutcome> outcome =
        runKernel(InternedName{description.ids.data(), description.flags.data(), description.count},
                  query.ids.data(), m, scratch());
    if (!outcome)
        return std::nullopt;
    return finalScore(outcome->total, description.count);
}

} // namespace pindle::detail
