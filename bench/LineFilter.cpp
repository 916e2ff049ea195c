#include "LineFilter.h"

#include "core/Unicode.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <cstring>

namespace pindle::filter {
namespace {

using detail::KernelOutcome;

// Whether every byte is plain ASCII other than CR: Unicode::isPlainAscii on bytes.
bool isPlainAscii(std::string_view bytes)
{
    size_t at = 0;
#ifdef __SSE2__
    const __m128i carriageReturn = _mm_set1_epi8('\r');
    for (; at + 16 <= bytes.size(); at += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes.data() + at));
        if (_mm_movemask_epi8(_mm_or_si128(block, _mm_cmpeq_epi8(block, carriageReturn))) != 0)
            return false;
    }
#endif
    for (; at < bytes.size(); ++at)
        if ((static_cast<unsigned char>(bytes[at]) & 0x80) || bytes[at] == '\r')
            return false;
    return true;
}

// Whether the query ids occur in this order in the bytes, an ASCII letter in either case;
// bytes beyond ASCII equal no id.
bool occursInOrder(std::string_view bytes, const std::vector<uint32_t> &ids)
{
    size_t at = 0;
    for (const uint32_t id : ids) {
        const char fold = id >= 'a' && id <= 'z' ? 0x20 : 0;
        while (at < bytes.size() && uint32_t(uint8_t(bytes[at] | fold)) != id)
            ++at;
        if (at == bytes.size())
            return false;
        ++at;
    }
    return true;
}

// 64 bytes of text, compared with one byte value at a time: a mask with bit i set where byte
// i is that value.
class Block
{
public:
    static constexpr size_t size = 64;

    explicit Block(const char *bytes)
    {
#ifdef __SSE2__
        for (int i = 0; i < 4; ++i)
            m_lanes[i] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + 16 * i));
#else
        std::memcpy(m_bytes, bytes, size);
#endif
    }

    // With folded, bytes are compared with their case bit set, so that a lowercase ASCII letter
    // is found in either case.
    uint64_t equal(uint8_t value, bool folded = false) const
    {
        uint64_t mask = 0;
#ifdef __SSE2__
        const __m128i wanted = _mm_set1_epi8(char(value));
        const __m128i fold = _mm_set1_epi8(folded ? 0x20 : 0);
        for (int i = 0; i < 4; ++i) {
            const __m128i lane = _mm_or_si128(m_lanes[i], fold);
            mask |= uint64_t(uint16_t(_mm_movemask_epi8(_mm_cmpeq_epi8(lane, wanted)))) << (16 * i);
        }
#else
        const uint8_t fold = folded ? 0x20 : 0;
        for (size_t i = 0; i < size; ++i)
            mask |= uint64_t((m_bytes[i] | fold) == value) << i;
#endif
        return mask;
    }

private:
#ifdef __SSE2__
    __m128i m_lanes[4];
#else
    uint8_t m_bytes[size];
#endif
};

// x + y + carry, with the carry out left in carry.
uint64_t addWithCarry(uint64_t x, uint64_t y, bool &carry)
{
    uint64_t sum = 0;
    const bool first = __builtin_add_overflow(x, y, &sum);
    const bool second = __builtin_add_overflow(sum, uint64_t(carry), &sum);
    carry = first || second;
    return sum;
}

// The query's plain ASCII characters, searched for in all the lines of a block at once, each at
// the earliest place after the place of the one before. One addition finds them all: adding a
// bit at the byte where a search starts to the mask of the bytes that are neither the character
// nor a line break carries that bit along to the first byte that is. Searches that reach the
// end of a block go on in the next.
class LineSearch
{
public:
    explicit LineSearch(const FilterQuery &query)
    {
        for (const uint32_t id : query.asciiIds) {
            Character character{.byte = uint8_t(id), .isLetter = id >= 'a' && id <= 'z'};
            for (const AsciiStandIn &standIn : query.standIns)
                if (id == uint32_t(standIn.ascii))
                    character.standInByte = uint8_t(standIn.utf8.back());
            m_characters.push_back(character);
        }
    }

    // One bit for each line of the block whose bytes hold the characters in order (the line of
    // the first block starts the text): at the last character's place, or at the line's start
    // for a query without ASCII characters. Blocks must come in order.
    uint64_t passes(const Block &block, uint64_t lineBreaks, uint64_t valid)
    {
        uint64_t from = (lineBreaks << 1) | m_startCarry;
        m_startCarry = lineBreaks >> 63;
        uint64_t reached = from;
        for (Character &character : m_characters) {
            // Usually most lines fail early: then the later characters need no mask.
            if (from == 0 && !character.searchCarry) {
                reached = 0;
                from = character.nextCarry;
                character.nextCarry = 0;
                continue;
            }
            uint64_t wanted = block.equal(character.byte, character.isLetter);
            if (character.standInByte != 0)
                wanted |= block.equal(character.standInByte);
            wanted &= valid & ~lineBreaks;
            const uint64_t stops = wanted | lineBreaks;
            reached = addWithCarry(from, ~stops, character.searchCarry) & wanted;
            // The next character is searched for from the byte after.
            from = (reached << 1) | character.nextCarry;
            character.nextCarry = reached >> 63;
        }
        return reached & valid;
    }

private:
    struct Character
    {
        uint8_t byte = 0;
        bool isLetter = false;
        uint8_t standInByte = 0; // the last byte of its stand-in, if it has one
        bool searchCarry = false;
        uint64_t nextCarry = 0;
    };
    std::vector<Character> m_characters;
    uint64_t m_startCarry = 1;
};

} // namespace

FilterQuery filterQuery(std::u16string_view query)
{
    detail::CharacterIds ids;
    FilterQuery filter{std::u16string(query), {}, {}};
    for (const uint32_t id : detail::prepareQuery(query, ids).ids) {
        if (id < 0x80)
            filter.asciiIds.push_back(id);
        for (const AsciiStandIn &standIn : asciiStandIns)
            if (id == uint32_t(standIn.ascii))
                filter.standIns.push_back(standIn);
    }
    return filter;
}

std::optional<double> LineScorer::scoreAscii(std::string_view line)
{
    const detail::PreparedQuery &query = m_prepared;
    const auto n = int32_t(line.size());
    const std::optional<KernelOutcome> outcome = detail::bestAlignment(
        detail::AsciiName{line.data(), n}, query.ids.data(), int32_t(query.ids.size()), m_scratch);
    if (!outcome)
        return std::nullopt;
    return detail::finalScore(outcome->total, n);
}

std::optional<double> LineScorer::score(std::string_view line)
{
    const detail::PreparedQuery &query = m_prepared;
    const auto m = int32_t(query.ids.size());
    if (m == 0)
        return std::nullopt;
    const bool isAscii = isPlainAscii(line);
    if (isAscii && !query.isAscii)
        return std::nullopt;
    // A character that lowercases to a plain ASCII one is that character, a letter in either
    // case, or a stand-in: so a line whose bytes don't hold the query's ASCII characters in
    // order can't match, unless it has a stand-in.
    if (!occursInOrder(line, m_query.asciiIds)) {
        const auto holds = [line](const AsciiStandIn &standIn) {
            return line.find(standIn.utf8) != std::string_view::npos;
        };
        if (isAscii || std::none_of(m_query.standIns.begin(), m_query.standIns.end(), holds))
            return std::nullopt;
    }
    if (isAscii)
        return scoreAscii(line);
    const detail::UnicodeDescription &description =
        m_describer.describe(Unicode::fromUtf8(line), &m_ids);
    if (!description.isMatchable || description.count < m || (query.mask & ~description.mask))
        return std::nullopt;
    const std::optional<KernelOutcome> outcome = detail::bestAlignment(
        detail::InternedName{description.ids.data(), description.flags.data(), description.count},
        query.ids.data(), m, m_scratch);
    if (!outcome)
        return std::nullopt;
    return detail::finalScore(outcome->total, description.count);
}

void LineScorer::scoreLines(std::string_view text, LineMatch onMatch, void *context)
{
    const detail::PreparedQuery &query = m_prepared;
    if (query.ids.empty())
        return;
    // The search below holds exactly for plain ASCII lines; other lines are tested again.
    const auto score = [&](size_t start, size_t end) {
        const std::string_view line = text.substr(start, end - start);
        const bool isAscii = isPlainAscii(line);
        if (isAscii && !query.isAscii)
            return;
        if (const std::optional<double> result = isAscii ? scoreAscii(line) : this->score(line))
            onMatch(context, line, *result);
    };
    LineSearch search(m_query);
    // Where the line that goes on into the next block starts, and whether it passed already.
    size_t lineStart = 0;
    bool isPassing = false;
    char last[Block::size];
    for (size_t blockStart = 0; blockStart < text.size(); blockStart += Block::size) {
        const size_t length = std::min(Block::size, text.size() - blockStart);
        const char *bytes = text.data() + blockStart;
        if (length < Block::size) {
            std::memset(last, 0, sizeof last);
            std::memcpy(last, bytes, length);
            bytes = last;
        }
        const Block block(bytes);
        const uint64_t valid = length == Block::size ? ~uint64_t(0) : (uint64_t(1) << length) - 1;
        const uint64_t lineBreaks = block.equal('\n') & valid;
        uint64_t passes = search.passes(block, lineBreaks, valid);
        if (isPassing && lineBreaks != 0) {
            score(lineStart, blockStart + size_t(std::countr_zero(lineBreaks)));
            isPassing = false;
        }
        for (; passes != 0; passes &= passes - 1) {
            const int at = std::countr_zero(passes);
            const uint64_t breaksBefore = lineBreaks & ((uint64_t(1) << at) - 1);
            const uint64_t breaksAfter = lineBreaks & (~uint64_t(0) << at);
            const size_t start = breaksBefore == 0 ? lineStart
                                                   : blockStart + Block::size -
                                                         size_t(std::countl_zero(breaksBefore));
            if (breaksAfter != 0)
                score(start, blockStart + size_t(std::countr_zero(breaksAfter)));
            else
                isPassing = true;
        }
        if (lineBreaks != 0)
            lineStart = blockStart + Block::size - size_t(std::countl_zero(lineBreaks));
    }
    if (isPassing)
        score(lineStart, text.size());
}

} // namespace pindle::filter
