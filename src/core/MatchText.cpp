#include "core/MatchText.h"

#include "core/Unicode.h"

#include <unicode/utf16.h>

#include <algorithm>
#include <string>
#include <unordered_map>

namespace pindle::detail {
namespace {

// The id of a lowercased character beyond plain ASCII, or 0 when it is several code points
// composed and there are no ids to number it.
uint32_t idOfComposed(std::u16string_view loweredCharacter, CharacterIds *ids)
{
    const std::u16string form = Unicode::composed(loweredCharacter);
    if (form.size() == 1)
        return form[0];
    if (form.size() == 2 && U16_IS_LEAD(form[0]) && U16_IS_TRAIL(form[1]))
        return U16_GET_SUPPLEMENTARY(form[0], form[1]);
    return ids != nullptr ? ids->idOf(form) : 0;
}

} // namespace

uint32_t CharacterIds::idOf(std::u16string_view composedForm)
{
    const auto known = m_ids.find(composedForm);
    if (known != m_ids.end())
        return known->second;
    const auto id = uint32_t(first + m_ids.size());
    m_ids.emplace(std::u16string(composedForm), id);
    return id;
}

uint8_t TextDescriber::classOf(std::u16string_view character)
{
    const auto known = m_classes.find(character);
    if (known != m_classes.end())
        return known->second;
    const uint8_t made = characterClass(character);
    m_classes.emplace(std::u16string(character), made);
    return made;
}

uint32_t TextDescriber::idOf(std::u16string_view loweredCharacter, CharacterIds *ids)
{
    const auto known = m_ids.find(loweredCharacter);
    if (known != m_ids.end() && known->second != 0)
        return known->second;
    const uint32_t id = idOfComposed(loweredCharacter, ids);
    // Ids a CharacterIds hands out are asked of it each time: it may be emptied meanwhile.
    if (known == m_ids.end())
        m_ids.emplace(std::u16string(loweredCharacter), id < CharacterIds::first ? id : 0);
    return id;
}

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

const UnicodeDescription &TextDescriber::describe(std::u16string_view text,
                                                  CharacterIds *characterIds)
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
    out.needsIds = false;
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
    uint8_t previousClass = 0;
    for (size_t j = 0; j < size_t(n); ++j) {
        // Plain ASCII characters, most of most texts, are their own ids and need no lookup.
        const auto from = size_t(bounds[j]);
        const auto size = size_t(bounds[j + 1]) - from;
        const uint8_t currentClass = size == 1 && text[from] < 0x80
                                         ? asciiClasses[text[from]]
                                         : classOf(text.substr(from, size));
        flags[j] = positionFlags(j == 0, previousClass, currentClass);
        previousClass = currentClass;
        const auto loweredFrom = size_t(loweredBounds[j]);
        const auto loweredSize = size_t(loweredBounds[j + 1]) - loweredFrom;
        if (loweredSize == 1 && lowered[loweredFrom] < 0x80) {
            ids[j] = lowered[loweredFrom];
            mask |= asciiMaskBits[ids[j]];
        } else {
            ids[j] =
                idOf(std::u16string_view(lowered).substr(loweredFrom, loweredSize), characterIds);
            out.needsIds = out.needsIds || ids[j] == 0;
            mask |= maskBit(ids[j]);
        }
    }
    out.mask = mask;
    return out;
}

PreparedQuery prepareQuery(std::u16string_view query, CharacterIds &ids)
{
    PreparedQuery prepared;
    if (Unicode::isPlainAscii(query)) {
        prepared.ids.reserve(query.size());
        for (const char16_t c : query)
            prepared.ids.push_back(asciiLower(c));
    } else {
        const std::u16string lowered = Unicode::lowercased(query);
        const std::vector<int32_t> bounds = Unicode::clusterBoundaries(lowered);
        for (size_t c = 0; c + 1 < bounds.size(); ++c) {
            const std::u16string_view character = std::u16string_view(lowered).substr(
                size_t(bounds[c]), size_t(bounds[c + 1] - bounds[c]));
            prepared.ids.push_back(character.size() == 1 && character[0] < 0x80
                                       ? character[0]
                                       : idOfComposed(character, &ids));
        }
    }
    for (const uint32_t id : prepared.ids) {
        prepared.mask |= maskBit(id);
        prepared.isAscii = prepared.isAscii && id < 0x80;
    }
    return prepared;
}

} // namespace pindle::detail
