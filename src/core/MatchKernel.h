#pragma once

// The fuzzy match: how well a query fits a name, and where.
//
// Both are taken as characters (extended grapheme clusters); a query character equals a name
// character when their lowercase forms are canonically equivalent. An alignment places each
// query character q[i] on a name position p[i] holding an equal character, p[0] < p[1] < ...
// It is allowed when every jump (p[i] > p[i-1] + 1) that lands on a position without a word
// bonus (below) skips no letter: a query may leap to a word's start, but not into a word's
// middle over part of it. Its score, with the constants of MatchScores.h, is
//
//     sum over i of  positionBonus + wordBonus(p[i])
//   + sum over i > 0 of  consecutiveBonus              if p[i] = p[i-1] + 1
//                        - gapPenalty * (p[i] - p[i-1] - 1)   otherwise
//   - gapPenalty * p[0]                 (the leading characters skipped)
//   - lengthPenalty * n                 (n: the name's length in characters)
//
// where wordBonus(j) is startBonus at j = 0, afterSeparatorBonus after one of `separators`,
// camelHumpBonus on an uppercase character after a lowercase one, and 0 elsewhere (classes of
// the name as written). The match is the allowed alignment of the highest score; among equal
// scores the one whose last position is leftmost. Without an allowed alignment there is none.
//
// Totals are kept in half points, where all of them are integers: T[i][j], the best total of an
// allowed alignment of q[0..i] with p[i] = j, is
//
//   T[0][j] = B(j) - j
//   T[i][j] = B(j) + max(T[i-1][j-1] + C,  max over sources k <= j - 2 of T[i-1][k] + k - j + 1)
//
// with B(j) = 2 * (positionBonus + wordBonus(j)) and C = 2 * consecutiveBonus; the sources of a
// position with a word bonus are all k, those of any other position the k at or after the last
// letter before j. The answer is max over j of T[m-1][j], leftmost j among equals; traced back,
// a step from j - 1 wins over a jump of equal total, and a jump takes the earliest best source
// onto a word bonus, the latest onto any other position.

#include "core/MatchScores.h"

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

namespace pindle::detail {

// The constants in half points.
inline constexpr int32_t startBonus = 2 * (MatchScores::startBonus + MatchScores::positionBonus);
inline constexpr int32_t afterSeparatorBonus =
    2 * (MatchScores::afterSeparatorBonus + MatchScores::positionBonus);
inline constexpr int32_t camelHumpBonus =
    2 * (MatchScores::camelHumpBonus + MatchScores::positionBonus);
inline constexpr int32_t plainBonus = 2 * MatchScores::positionBonus;
inline constexpr int32_t consecutiveBonus = 2 * MatchScores::consecutiveBonus;
static_assert(2 * MatchScores::gapPenalty == 1, "a skipped character costs one half point");

// The only characters that open a word after them.
inline constexpr std::u16string_view separators = u" -_./\\:,()[]{}@+&'\"#~";

// Properties of one character of the unchanged name, as bits.
enum CharacterClass : uint8_t
{
    separatorClass = 1,
    lowercaseClass = 2,
    uppercaseClass = 4,
    letterClass = 8,
};

// A position's flags byte: B(j) in the low bits, and whether the character is a letter.
inline constexpr uint8_t letterFlag = 0x80;
inline constexpr uint8_t bonusMask = 0x7F;

// The flags byte of position j, from the classes of the characters at j - 1 and j.
constexpr uint8_t positionFlags(bool atStart, uint8_t previousClass, uint8_t currentClass)
{
    int32_t bonus = plainBonus;
    if (atStart)
        bonus = startBonus;
    else if (previousClass & separatorClass)
        bonus = afterSeparatorBonus;
    else if ((previousClass & lowercaseClass) && (currentClass & uppercaseClass))
        bonus = camelHumpBonus;
    return uint8_t(bonus) | ((currentClass & letterClass) ? letterFlag : 0);
}

// Properties of the plain ASCII characters, and their lowercase.
inline constexpr std::array<uint8_t, 128> asciiClasses = [] {
    std::array<uint8_t, 128> table{};
    for (char16_t c = 0; c < 128; ++c) {
        if (c >= u'a' && c <= u'z')
            table[c] = lowercaseClass | letterClass;
        else if (c >= u'A' && c <= u'Z')
            table[c] = uppercaseClass | letterClass;
        else if (separators.find(c) != std::u16string_view::npos)
            table[c] = separatorClass;
    }
    return table;
}();

constexpr uint32_t asciiLower(uint32_t c)
{
    return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c;
}

// A plain ASCII name (Unicode::isPlainAscii) read in place: its ids are the lowercased bytes, and
// its flags are worked out from asciiClasses as the kernel goes, the same bytes a description would
// hold.
struct AsciiName
{
    const char *text;
    int32_t count;
};

// Any other name, described up front: per character an id of its lowercased form (a plain
// ASCII character its own code; equal ids for canonically equivalent characters) and its flags.
struct InternedName
{
    const uint32_t *ids;
    const uint8_t *flags;
    int32_t count;
};

// The kernel's working storage; it grows to the largest name met and is then reused, so that
// scoring allocates nothing. Whoever owns it uses it on one thread at a time.
struct KernelScratch
{
    std::vector<int32_t> low, high, rowBegin;
    std::vector<int32_t> cellAt, cellTotal, cellFrom;
    std::vector<int32_t> queueAt, queueValue;
    std::vector<int32_t> lastLetters;
};

struct KernelOutcome
{
    int32_t total = 0; // max over j of T[m-1][j], in half points
    int32_t end = 0;   // that j
    // The name was left before its total was known, as no alignment could reach the total
    // asked for; it may or may not match.
    bool isPruned = false;
};

// No step gains more than this in half points: a consecutive character after a separator.
inline constexpr int32_t maximalStep = consecutiveBonus + afterSeparatorBonus;
// Nor more than this for a character after one that is no separator, in a name without a
// camel-case hump: it then either follows directly on a position without a bonus, or jumps.
inline constexpr int32_t plainStep = consecutiveBonus + plainBonus;
inline constexpr int32_t jumpStep = afterSeparatorBonus - 1;

// The match of the query (m ids) in the name, or nothing. With positions given, also traces
// it (one index per query character).
//
// The tables are evaluated sparsely: row i holds only the positions where q[i] occurs between
// its earliest placement and the latest that leaves room for the rest of the query. No cell
// outside can be part of a complete alignment, and the running maximum and the window of
// sources see the same cells in the same order as the full tables, so totals and tie-breaks are
// theirs.
//
// Pruning: when mustReach is given, a name may come back isPruned as soon as the best cell of
// some row i plus gainAfter[i] (else maximalStep per remaining character) falls below it. Sound
// as long as gainAfter[i] bounds what characters i + 1 onwards can add; a caller that only
// keeps totals of at least mustReach loses nothing.
template <typename Name>
std::optional<KernelOutcome> bestAlignment(const Name &name, const uint32_t *query, int32_t m,
                                           KernelScratch &scratch,
                                           std::vector<int32_t> *positions = nullptr,
                                           int32_t mustReach = std::numeric_limits<int32_t>::min(),
                                           const int32_t *gainAfter = nullptr);

extern template std::optional<KernelOutcome> bestAlignment(const AsciiName &, const uint32_t *,
                                                           int32_t, KernelScratch &,
                                                           std::vector<int32_t> *, int32_t,
                                                           const int32_t *);
extern template std::optional<KernelOutcome> bestAlignment(const InternedName &, const uint32_t *,
                                                           int32_t, KernelScratch &,
                                                           std::vector<int32_t> *, int32_t,
                                                           const int32_t *);

// The score in points of a total in half points, over a name of n characters.
inline double finalScore(int32_t total, int32_t n)
{
    return total / 2.0 - MatchScores::lengthPenalty * n;
}

} // namespace pindle::detail
