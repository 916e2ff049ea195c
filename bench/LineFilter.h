#pragma once

// The filter of pindle-bench --filter: FuzzyMatch::match's score of each line of UTF-8 text,
// with the lines that cannot match rejected on their bytes before any analysis.

#include "core/MatchKernel.h"
#include "core/MatchText.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pindle::filter {

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

struct FilterQuery
{
    std::u16string text;
    // The plain ASCII ids in query order, which any match's bytes hold in this order: as that
    // character, a letter in either case, or one of the query's stand-ins.
    std::vector<uint32_t> asciiIds;
    std::vector<AsciiStandIn> standIns;
};

FilterQuery filterQuery(std::u16string_view query);

// Scores lines for one query with working storage of its own: one per thread.
class LineScorer
{
public:
    explicit LineScorer(const FilterQuery &query)
        : m_query(query), m_prepared(detail::prepareQuery(query.text, m_ids))
    {}

    std::optional<double> score(std::string_view line);

    // score() of every line of text (lines end at a line break; the last may lack one), with
    // onMatch(line, score) called for each line that matches, in order. Lines are tested 64
    // bytes at a time for the query's ASCII characters, so most of the lines that cannot match
    // cost a few instructions.
    template <typename OnMatch>
    void scoreLines(std::string_view text, const OnMatch &onMatch)
    {
        scoreLines(
            text,
            [](void *context, std::string_view line, double score) {
                (*static_cast<const OnMatch *>(context))(line, score);
            },
            const_cast<void *>(static_cast<const void *>(&onMatch)));
    }

private:
    using LineMatch = void (*)(void *context, std::string_view line, double score);
    void scoreLines(std::string_view text, LineMatch onMatch, void *context);
    std::optional<double> scoreAscii(std::string_view line);

    const FilterQuery &m_query;
    // The query numbered with this scorer's ids, which its lines' characters share.
    detail::CharacterIds m_ids;
    detail::PreparedQuery m_prepared;
    detail::KernelScratch m_scratch;
    detail::TextDescriber m_describer;
};

} // namespace pindle::filter
