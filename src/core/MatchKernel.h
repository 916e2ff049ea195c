#pragma once

// The scoring recurrence shared by FuzzyMatch::match and the prepared search. Both describe a
// name the same way: per character an integer id of its lowercased form (equal ids for
// canonically equivalent characters) and a flags byte with its position bonus and whether it
// is a letter. Totals are kept in half points, where every total is an exact integer.

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

namespace pindle::detail {

// Bonuses in half points: the base bonus plus the 1 every position gets, doubled.
inline constexpr int32_t startBonus = 2 * (12 + 1);
inline constexpr int32_t afterSeparatorBonus = 2 * (10 + 1);
inline constexpr int32_t camelHumpBonus = 2 * (9 + 1);
inline constexpr int32_t plainBonus = 2 * (0 + 1);
inline constexpr int32_t consecutiveBonus = 2 * 15;
// A skipped character costs 0.5, one half point.
inline constexpr double lengthPenalty = 0.05;

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

// A name made only of plain ASCII characters (no CR, which pairs with LF), read in place as
// bytes (or UTF-16 units): ids are the lowercased codes, flags are worked out on the fly.
template <typename Unit>
struct AsciiName
{
    const Unit *text;
    int32_t count;
};

// Any other name, described up front.
struct InternedName
{
    const uint32_t *ids;
    const uint8_t *flags;
    int32_t count;
};

// Per-call working storage, reused across calls on one thread so that scoring never allocates
// once it has grown.
struct KernelScratch
{
    std::vector<int32_t> low, high, rowBegin;
    std::vector<int32_t> cellAt, cellTotal, cellFrom;
    std::vector<int32_t> queueAt, queueValue;
    std::vector<int32_t> lastLetters;
};

struct KernelOutcome
{
    int32_t total = 0; // M, in half points
    int32_t end = 0;
    // The name was left before its total was known, as no alignment could reach the total
    // asked for; it may or may not match.
    bool isPruned = false;
};

// No alignment gains more than this per query character after the first.
inline constexpr int32_t maximalStep = consecutiveBonus + afterSeparatorBonus;
// Nor more than this for a character after one that is no separator, in a name without a
// camel-case hump: it then either follows directly on a position without a bonus, or jumps.
inline constexpr int32_t plainStep = consecutiveBonus + plainBonus;
inline constexpr int32_t jumpStep = afterSeparatorBonus - 1;

// The best allowed alignment of the query (m ids) in the name, or nothing. With positions
// given, also traces it back (one index per query character). Names that pass the quick
// rejection but cannot reach a total of mustReach may come back pruned; gainAfter[i], when
// given, bounds what query characters i + 1 onwards can add (else maximalStep each).
template <typename Name>
std::optional<KernelOutcome> runKernel(const Name &name, const uint32_t *query, int32_t m,
                                       KernelScratch &scratch,
                                       std::vector<int32_t> *positions = nullptr,
                                       int32_t mustReach = std::numeric_limits<int32_t>::min(),
                                       const int32_t *gainAfter = nullptr);

extern template std::optional<KernelOutcome> runKernel(const AsciiName<char> &, const uint32_t *,
                                                       int32_t, KernelScratch &,
                                                       std::vector<int32_t> *, int32_t,
                                                       const int32_t *);
extern template std::optional<KernelOutcome> runKernel(const InternedName &, const uint32_t *,
                                                       int32_t, KernelScratch &,
                                                       std::vector<int32_t> *, int32_t,
                                                       const int32_t *);

// Whether the query ids occur in this order in the bytes, an ASCII letter in either case;
// bytes beyond ASCII equal no id.
bool occursInOrder(std::string_view bytes, const uint32_t *query, int32_t m);

// Whether every byte is plain ASCII other than CR.
bool isPlainAscii(std::string_view bytes);

inline double finalScore(int32_t total, int32_t n)
{
    return total / 2.0 - lengthPenalty * n;
}

} // namespace pindle::detail
