#include "core/MatchText.h"

#include "core/Unicode.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <cstring>
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
        made.characterClass = characterClass(character);
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
    explicit LineSearch(const PreparedQuery &query)
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

// A reduction without an early exit, which the compiler turns into vector code: names are
// short, and most are plain.
bool isPlainAscii(std::u16string_view text)
{
    unsigned isOther = 0;
    for (const char16_t c : text)
        isOther |= unsigned(c >= 0x80) | unsigned(c == u'\r');
    return isOther == 0;
}

void describeUnicode(UnicodeDescription &out, std::u16string_view text)
{
    // Working storage kept per thread: a description allocates nothing once it has grown.
    thread_local std::vector<int32_t> bounds;
    thread_local std::vector<int32_t> loweredBounds;
    thread_local std::u16string lowered;
    Unicode::clusterBoundaries(text, bounds);
    const auto n = int32_t(bounds.size() - 1);
    out.count = n;
    out.mask = 0;
    out.ids.clear();
    out.flags.clear();
    Unicode::lowercased(text, lowered);
    Unicode::clusterBoundaries(lowered, loweredBounds);
    // Characters are paired with their lowercase by position; when lowercasing merged some,
    // the pairing is lost and the text never matches (as in FuzzyMatch::match).
    out.isMatchable = loweredBounds.size() >= bounds.size();
    if (!out.isMatchable)
        return;
    out.ids.resize(size_t(n));
    out.flags.resize(size_t(n));
    uint32_t *const ids = out.ids.data();
    uint8_t *const flags = out.flags.data();
    uint64_t mask = 0;
    CharacterTable &table = characterTable();
    const auto guard = table.lock();
    uint8_t previousClass = 0;
    for (size_t j = 0; j < size_t(n); ++j) {
        // Plain ASCII characters, most of most texts, are their own ids and need no lookup.
        const auto from = size_t(bounds[j]);
        const auto size = size_t(bounds[j + 1]) - from;
        const uint8_t currentClass = size == 1 && text[from] < 0x80
                                         ? asciiClasses[text[from]]
                                         : table.info(text.substr(from, size)).characterClass;
        flags[j] = positionFlags(j == 0, previousClass, currentClass);
        previousClass = currentClass;
        const auto loweredFrom = size_t(loweredBounds[j]);
        const auto loweredSize = size_t(loweredBounds[j + 1]) - loweredFrom;
        if (loweredSize == 1 && lowered[loweredFrom] < 0x80) {
            ids[j] = lowered[loweredFrom];
            mask |= asciiMaskBits[ids[j]];
        } else {
            ids[j] = table.info(std::u16string_view(lowered).substr(loweredFrom, loweredSize)).id;
            mask |= maskBit(ids[j]);
        }
    }
    out.mask = mask;
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
        for (const AsciiStandIn &standIn : asciiStandIns)
            if (id == uint32_t(standIn.ascii))
                prepared.standIns.push_back(standIn);
    }
    return prepared;
}

KernelScratch &scratch()
{
    thread_local KernelScratch instance;
    return instance;
}

namespace {

// scoreUtf8 of a plain ASCII line, for an ASCII query.
std::optional<double> scoreAscii(const PreparedQuery &query, std::string_view line)
{
    const auto n = int32_t(line.size());
    const std::optional<KernelOutcome> outcome = runKernel(
        AsciiName<char>{line.data(), n}, query.ids.data(), int32_t(query.ids.size()), scratch());
    if (!outcome)
        return std::nullopt;
    return finalScore(outcome->total, n);
}

} // namespace

std::optional<double> scoreUtf8(const PreparedQuery &query, std::string_view line)
{
    const auto m = int32_t(query.ids.size());
    if (m == 0)
        return std::nullopt;
    const bool isAscii = isPlainAscii(line);
    if (isAscii && !query.isAscii)
        return std::nullopt;
    // A character that lowercases to a plain ASCII one is that character, a letter in either
    // case, or a stand-in: so a line whose bytes don't hold the query's ASCII characters in
    // order can't match, unless it has a stand-in.
    if (!occursInOrder(line, query.asciiIds.data(), int32_t(query.asciiIds.size()))) {
        const auto holds = [line](const AsciiStandIn &standIn) {
            return line.find(standIn.utf8) != std::string_view::npos;
        };
        if (isAscii || std::none_of(query.standIns.begin(), query.standIns.end(), holds))
            return std::nullopt;
    }
    if (isAscii)
        return scoreAscii(query, line);
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

namespace pindle::detail {

void scoreLines(const PreparedQuery &query, std::string_view text, LineMatch onMatch, void *context)
{
    if (query.ids.empty())
        return;
    // The search below holds exactly for plain ASCII lines; other lines are tested again.
    const auto score = [&](size_t start, size_t end) {
        const std::string_view line = text.substr(start, end - start);
        const bool isAscii = isPlainAscii(line);
        if (isAscii && !query.isAscii)
            return;
        if (const std::optional<double> result =
                isAscii ? scoreAscii(query, line) : scoreUtf8(query, line))
            onMatch(context, line, *result);
    };
    LineSearch search(query);
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

} // namespace pindle::detail
