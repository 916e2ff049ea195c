#pragma once

// The score constants of the fuzzy match, in points. MatchKernel.h states the rule they enter.
namespace pindle::MatchScores {

// Every query character earns positionBonus where it lands, plus one of these by what stands
// before that position in the name as written.
inline constexpr int startBonus = 12;          // the name's first character
inline constexpr int afterSeparatorBonus = 10; // right after a separator character
inline constexpr int camelHumpBonus = 9;       // an uppercase character after a lowercase one
inline constexpr int positionBonus = 1;
// A query character placed right after the previous one earns this instead of a gap.
inline constexpr int consecutiveBonus = 15;
// Each name character skipped, before the first query character or between two, costs this.
inline constexpr double gapPenalty = 0.5;
// And each character of the name, matched or not.
inline constexpr double lengthPenalty = 0.05;

} // namespace pindle::MatchScores
