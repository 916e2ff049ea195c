#pragma once

// The scoring recurrence shared by FuzzyMatch::match and the prepared search. Both describe a
// name the same way: per character an integer id of its lowercased form (equal ids for
// canonically equivalent characters) and a flags byte with its position bonus and whether it
// is a letter. Totals are kept in half points, where every total is an exact integer.

#include <QList>

#include <cstdint>
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

// Per-call working storage, reused across calls on one thread so that scoring never allocates
// once it has grown.
struct KernelScratch
{
    std::vector<int32_t> low, high, rowBegin;
    std::vector<int32_t> cellAt, cellTotal, cellFrom;
    std::vector<int32_t> queueAt, queueValue;
};

struct KernelOutcome
{
    int32_t total = 0; // M, in half points
    int32_t end = 0;
};

// The best allowed alignment of query (m ids) in the name (n ids, n flags), or nothing. With
// positions given, also traces it back (one index per query character).
std::optional<KernelOutcome> runKernel(const uint8_t *ids, const uint8_t *flags, int32_t n,
                                       const uint32_t *query, int32_t m, KernelScratch &scratch,
                                       QList<qsizetype> *positions = nullptr);
std::optional<KernelOutcome> runKernel(const uint32_t *ids, const uint8_t *flags, int32_t n,
                                       const uint32_t *query, int32_t m, KernelScratch &scratch,
                                       QList<qsizetype> *positions = nullptr);

inline double finalScore(int32_t total, int32_t n)
{
    return total / 2.0 - lengthPenalty * n;
}

} // namespace pindle::detail
