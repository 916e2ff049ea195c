#pragma once

// Texts described the way MatchKernel.h takes them: per character an integer id of its
// lowercased form (a plain ASCII character is its own code, every other character an interned
// number, the same for canonically equivalent ones) and a flags byte. The search describes its
// names with this once, the command-line filter each line it reads.

#include "core/MatchKernel.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace pindle::detail {

// Letters and digits get a bit each; other ASCII and all other characters share the rest.
constexpr uint64_t maskBit(uint32_t id)
{
    if (id >= 'a' && id <= 'z')
        return uint64_t(1) << (id - 'a');
    if (id >= '0' && id <= '9')
        return uint64_t(1) << (26 + id - '0');
    if (id < 128)
        return uint64_t(1) << (36 + id % 20);
    return uint64_t(1) << (56 + id % 8);
}

inline constexpr std::array<uint64_t, 128> asciiMaskBits = [] {
    std::array<uint64_t, 128> table{};
    for (uint32_t c = 0; c < 128; ++c)
        table[c] = maskBit(asciiLower(c));
    return table;
}();

// The CharacterClass bits of one character (one grapheme cluster) of a name as written.
uint8_t characterClass(std::u16string_view character);

// A text whose every character is a single ASCII code unit: all of ASCII except CR, which
// forms one character with a following LF.
bool isPlainAscii(std::u16string_view text);

// The description of a text with characters beyond plain ASCII.
struct UnicodeDescription
{
    std::vector<uint32_t> ids;
    std::vector<uint8_t> flags;
    uint64_t mask = 0;       // one bit per class of ids present
    int32_t count = 0;       // characters of the text
    bool isMatchable = true; // false when lowercasing merged characters
};

void describeUnicode(UnicodeDescription &out, std::u16string_view text);

// The characters beyond ASCII that are, lowercased and up to canonical equivalence, a plain
// ASCII character: in a line's bytes they stand where that character would.
struct AsciiStandIn
{
    char ascii;
    std::string_view utf8;
};
inline constexpr std::array<AsciiStandIn, 3> asciiStandIns = {{
    {'k', "\xE2\x84\xAA"}, // KELVIN SIGN
    {';', "\xCD\xBE"},     // GREEK QUESTION MARK
    {'`', "\xE1\xBF\xAF"}, // GREEK VARIA
}};

// A query analysed for matching: its lowercased characters as ids.
struct PreparedQuery
{
    std::vector<uint32_t> ids;
    uint64_t mask = 0;
    bool isAscii = true; // every id is a plain ASCII character
    // The plain ASCII ids in query order, which any match's bytes hold in this order: as that
    // character, a letter in either case, or one of the query's stand-ins.
    std::vector<uint32_t> asciiIds;
    std::vector<AsciiStandIn> standIns;
};

PreparedQuery prepareQuery(std::u16string_view query);

// FuzzyMatch::match's score of one line of UTF-8 text for the query, without keeping anything:
// lines that cannot match are rejected on their bytes before any analysis.
std::optional<double> scoreUtf8(const PreparedQuery &query, std::string_view line);

// scoreUtf8 of every line of text (lines end at a line break; the last may lack one), with
// onMatch called for each line that matches, in order. Lines are tested 64 bytes at a time for
// the query's ASCII characters, so most of the lines that cannot match cost a few instructions.
using LineMatch = void (*)(void *context, std::string_view line, double score);
void scoreLines(const PreparedQuery &query, std::string_view text, LineMatch onMatch,
                void *context);

template <typename OnMatch>
void scoreLines(const PreparedQuery &query, std::string_view text, const OnMatch &onMatch)
{
    scoreLines(
        query, text,
        [](void *context, std::string_view line, double score) {
            (*static_cast<const OnMatch *>(context))(line, score);
        },
        const_cast<void *>(static_cast<const void *>(&onMatch)));
}

// This thread's working storage of the kernel.
KernelScratch &scratch();

} // namespace pindle::detail
