#pragma once

// Texts described the way MatchKernel.h takes them: per character an integer id of its
// lowercased form and a flags byte. The id is the code point of the lowercased character's
// canonical composition (NFC), the same for canonically equivalent characters and wherever it
// is worked out; only a character whose composition is several code points (a letter with marks
// that have no precomposed form, an emoji with a modifier, CR LF) needs a number handed out by a
// CharacterIds, which whoever compares such ids shares.

#include "core/MatchKernel.h"
#include "core/Unicode.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace pindle::detail {

// The quick rejection's mask: a name can only match a query whose bits it all has. Each id sets
// one bit of 64: the letters a-z bits 0-25, the digits bits 26-35, other ASCII ids share bits
// 36-55 (by id modulo 20), every id beyond ASCII shares bits 56-63 (by id modulo 8).
inline constexpr int maskLetterBits = 26;
inline constexpr int maskDigitBits = 10;
inline constexpr int maskOtherAsciiBits = 20;
inline constexpr int maskBeyondAsciiBits = 8;
inline constexpr int maskDigitsFrom = maskLetterBits;
inline constexpr int maskOtherAsciiFrom = maskDigitsFrom + maskDigitBits;
inline constexpr int maskBeyondAsciiFrom = maskOtherAsciiFrom + maskOtherAsciiBits;
static_assert(maskBeyondAsciiFrom + maskBeyondAsciiBits == 64);

constexpr uint64_t maskBit(uint32_t id)
{
    if (id >= 'a' && id <= 'z')
        return uint64_t(1) << (id - 'a');
    if (id >= '0' && id <= '9')
        return uint64_t(1) << (maskDigitsFrom + id - '0');
    if (id < 128)
        return uint64_t(1) << (maskOtherAsciiFrom + id % maskOtherAsciiBits);
    return uint64_t(1) << (maskBeyondAsciiFrom + id % maskBeyondAsciiBits);
}

inline constexpr std::array<uint64_t, 128> asciiMaskBits = [] {
    std::array<uint64_t, 128> table{};
    for (uint32_t c = 0; c < 128; ++c)
        table[c] = maskBit(asciiLower(c));
    return table;
}();

struct TextHash
{
    using is_transparent = void;
    size_t operator()(std::u16string_view text) const
    {
        return std::hash<std::u16string_view>()(text);
    }
};

// Ids for the characters whose canonical composition is several code points, handed out in the
// order they are first asked for, above every code point. A search session holds one for its
// list and queries and empties it when the list is replaced. One thread at a time.
class CharacterIds
{
public:
    static constexpr uint32_t first = 0x110000;

    uint32_t idOf(std::u16string_view composedForm);
    void clear() { m_ids.clear(); }

private:
    std::unordered_map<std::u16string, uint32_t, TextHash, std::equal_to<>> m_ids;
};

// The CharacterClass bits of one character (one grapheme cluster) of a name as written.
uint8_t characterClass(std::u16string_view character);

// The description of a text with characters beyond plain ASCII.
struct UnicodeDescription
{
    std::vector<uint32_t> ids;
    std::vector<uint8_t> flags;
    uint64_t mask = 0;       // one bit per class of ids present
    int32_t count = 0;       // characters of the text
    bool isMatchable = true; // false when lowercasing merged characters
    // A character needed a CharacterIds and none was given: ids are incomplete.
    bool needsIds = false;
};

// Describes texts, reusing its working storage: once grown, a description allocates nothing,
// and the classes and ids of the characters beyond ASCII it has met are remembered for its
// life. One thread at a time.
class TextDescriber
{
public:
    // Valid until the next call. ids may be null.
    const UnicodeDescription &describe(std::u16string_view text, CharacterIds *characterIds);

private:
    uint8_t classOf(std::u16string_view character);
    // 0 when the character needs ids and there are none.
    uint32_t idOf(std::u16string_view loweredCharacter, CharacterIds *ids);

    std::unordered_map<std::u16string, uint8_t, TextHash, std::equal_to<>> m_classes;
    // Of the lowercased characters; 0 for one whose id a CharacterIds hands out.
    std::unordered_map<std::u16string, uint32_t, TextHash, std::equal_to<>> m_ids;
    Unicode::ClusterBreaker m_breaks;
    std::vector<int32_t> m_bounds;
    std::vector<int32_t> m_loweredBounds;
    std::u16string m_lowered;
    UnicodeDescription m_description;
};

// A query analysed for matching: its lowercased characters as ids.
struct PreparedQuery
{
    std::vector<uint32_t> ids;
    uint64_t mask = 0;
    bool isAscii = true; // every id is a plain ASCII character
};

PreparedQuery prepareQuery(std::u16string_view query, CharacterIds &ids);

} // namespace pindle::detail
