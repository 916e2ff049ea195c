#include "core/MatchKernel.h"

#include <algorithm>
#include <cstring>
#include <limits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

// The recurrence is evaluated sparsely: a row keeps only the positions where its query
// character occurs and an alignment can end, in increasing order, and each row is confined to
// the positions between the earliest and the latest placement of its character that still
// leaves room for the rest of the query. Cells outside those bounds can never be part of a
// complete alignment, and the running maximum and the window queue see the same sources in the
// same order as a dense sweep would, so totals and tie-breaks are those of the dense tables.
namespace pindle::detail {
namespace {

constexpr int32_t none = std::numeric_limits<int32_t>::min();

// Name accessors: the id and the flags of a position, and searches for an id.

uint8_t flagsAt(const InternedName &name, int32_t j)
{
    return name.flags[j];
}

bool isLetterAt(const InternedName &name, int32_t j)
{
    return name.flags[j] & letterFlag;
}

int32_t findForward(const InternedName &name, int32_t from, int32_t to, uint32_t id)
{
    for (int32_t j = from; j < to; ++j)
        if (name.ids[j] == id)
            return j;
    return -1;
}

int32_t findBackward(const InternedName &name, int32_t to, uint32_t id)
{
    for (int32_t j = to - 1; j >= 0; --j)
        if (name.ids[j] == id)
            return j;
    return -1;
}

template <typename Unit>
uint8_t flagsAt(const AsciiName<Unit> &name, int32_t j)
{
    const uint8_t current = asciiClasses[uint8_t(name.text[j])];
    return positionFlags(j == 0, j > 0 ? asciiClasses[uint8_t(name.text[j - 1])] : 0, current);
}

template <typename Unit>
bool isLetterAt(const AsciiName<Unit> &name, int32_t j)
{
    return asciiClasses[uint8_t(name.text[j])] & letterClass;
}

// An ASCII letter is found in either case by setting the case bit; every other id only as it
// stands.
constexpr uint32_t caseBit(uint32_t id)
{
    return id >= 'a' && id <= 'z' ? 0x20 : 0;
}

#ifdef __SSE2__
// Sixteen bytes of a name compared at once with one ASCII character, case folded as caseBit
// says: a mask with one bit per byte that matched (two per matching 16-bit unit).
template <typename Unit>
struct LaneMatcher
{
    static constexpr int32_t lanes = 16 / int32_t(sizeof(Unit));

    explicit LaneMatcher(uint32_t id)
        : fold(sizeof(Unit) == 1 ? _mm_set1_epi8(char(caseBit(id)))
                                 : _mm_set1_epi16(short(caseBit(id)))),
          wanted(sizeof(Unit) == 1 ? _mm_set1_epi8(char(id)) : _mm_set1_epi16(short(id)))
    {}

    int matchesAt(const Unit *text) const
    {
        const __m128i block =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i *>(text)), fold);
        return _mm_movemask_epi8(sizeof(Unit) == 1 ? _mm_cmpeq_epi8(block, wanted)
                                                   : _mm_cmpeq_epi16(block, wanted));
    }

    __m128i fold;
    __m128i wanted;
};
#endif

template <typename Unit>
int32_t findForward(const AsciiName<Unit> &name, int32_t from, int32_t to, uint32_t id)
{
    if (id >= 0x80)
        return -1;
    const Unit fold = Unit(caseBit(id));
    const Unit wanted = Unit(id);
    int32_t j = from;
#ifdef __SSE2__
    const LaneMatcher<Unit> matcher(id);
    for (; j + matcher.lanes <= to; j += matcher.lanes) {
        if (const int bits = matcher.matchesAt(name.text + j))
            return j + __builtin_ctz(unsigned(bits)) / int32_t(sizeof(Unit));
    }
#endif
    for (; j < to; ++j)
        if (Unit(name.text[j] | fold) == wanted)
            return j;
    return -1;
}

template <typename Unit>
int32_t findBackward(const AsciiName<Unit> &name, int32_t to, uint32_t id)
{
    if (id >= 0x80)
        return -1;
    const Unit fold = Unit(caseBit(id));
    const Unit wanted = Unit(id);
    int32_t j = to;
#ifdef __SSE2__
    const LaneMatcher<Unit> matcher(id);
    for (; j - matcher.lanes >= 0; j -= matcher.lanes) {
        if (const int bits = matcher.matchesAt(name.text + j - matcher.lanes))
            return j - matcher.lanes + (31 - __builtin_clz(unsigned(bits))) / int32_t(sizeof(Unit));
    }
#endif
    for (--j; j >= 0; --j)
        if (Unit(name.text[j] | fold) == wanted)
            return j;
    return -1;
}

template <typename Name>
std::optional<KernelOutcome> kernel(const Name &name, const uint32_t *query, int32_t m,
                                    KernelScratch &s, std::vector<int32_t> *positions,
                                    int32_t mustReach, const int32_t *gainAfter)
{
    const int32_t n = name.count;
    if (m <= 0 || n < m)
        return std::nullopt;

    if (m == 1) {
        // The best single position, leftmost among equals. Past position 0 no bonus exceeds
        // afterSeparatorBonus, so once that could no longer beat the best, the rest is skipped.
        int32_t best = none;
        int32_t bestAt = -1;
        const int32_t first = findForward(name, 0, n, query[0]);
        if (first < 0)
            return std::nullopt;
        if ((first == 0 ? startBonus : afterSeparatorBonus - first) < mustReach)
            return KernelOutcome{.isPruned = true};
        for (int32_t j = first; j >= 0; j = findForward(name, j + 1, n, query[0])) {
            const int32_t total = (flagsAt(name, j) & bonusMask) - j;
            if (total > best) {
                best = total;
                bestAt = j;
            }
            if (best >= afterSeparatorBonus - (j + 1))
                break;
        }
        if (bestAt < 0)
            return std::nullopt;
        if (positions)
            *positions = {bestAt};
        return KernelOutcome{best, bestAt};
    }

    // Quick rejection, and the earliest placement of each query character.
    if (s.low.size() < size_t(m)) {
        s.low.resize(size_t(m));
        s.high.resize(size_t(m));
        s.rowBegin.resize(size_t(m) + 1);
    }
    int32_t at = 0;
    for (int32_t i = 0; i < m; ++i) {
        at = findForward(name, at, n, query[i]);
        if (at < 0)
            return std::nullopt;
        s.low[size_t(i)] = at++;
    }
    const auto isOutOfReach = [&](int32_t rowBest, int32_t row) {
        return rowBest + (gainAfter ? gainAfter[row] : maximalStep * (m - 1 - row)) < mustReach;
    };
    if (isOutOfReach(s.low[0] == 0 ? startBonus : afterSeparatorBonus - s.low[0], 0))
        return KernelOutcome{.isPruned = true};
    at = n;
    for (int32_t i = m - 1; i >= 0; --i)
        s.high[size_t(i)] = at = findBackward(name, at, query[i]);

    const bool tracing = positions != nullptr;
    size_t cells = 0;
    auto ensureCells = [&s](size_t count) {
        if (s.cellAt.size() < count) {
            s.cellAt.resize(count * 2);
            s.cellTotal.resize(count * 2);
            s.cellFrom.resize(count * 2);
        }
    };

    // First row: any occurrence, paying for the characters before it.
    s.rowBegin[0] = 0;
    ensureCells(size_t(n));
    int32_t rowBest = none;
    for (int32_t j = s.low[0]; j >= 0; j = findForward(name, j + 1, s.high[0] + 1, query[0])) {
        s.cellAt[cells] = j;
        s.cellTotal[cells] = (flagsAt(name, j) & bonusMask) - j;
        s.cellFrom[cells] = -1;
        rowBest = std::max(rowBest, s.cellTotal[cells]);
        ++cells;
    }
    if (isOutOfReach(rowBest, 0))
        return KernelOutcome{.isPruned = true};

    if (s.queueAt.size() < size_t(n)) {
        s.queueAt.resize(size_t(n));
        s.queueValue.resize(size_t(n));
    }
    int32_t *queueAt = s.queueAt.data();
    int32_t *queueValue = s.queueValue.data();

    // The last letter before each position from the first match on; letters before that one
    // evict no source, as every source lies at or after it.
    if (s.lastLetters.size() < size_t(n))
        s.lastLetters.resize(size_t(n));
    int32_t *lastLetters = s.lastLetters.data();
    for (int32_t j = s.low[0], letter = 0, end = s.high[size_t(m) - 1]; j <= end; ++j) {
        lastLetters[j] = letter;
        if (isLetterAt(name, j))
            letter = j;
    }

    for (int32_t i = 1; i < m; ++i) {
        // Without tracing only the previous row is needed, so rows overwrite each other.
        const size_t previousBegin = tracing ? size_t(s.rowBegin[size_t(i) - 1]) : 0;
        const size_t previousEnd = cells;
        if (previousBegin == previousEnd)
            return std::nullopt;
        // A row is written after the previous one; without tracing it then moves down.
        size_t write = previousEnd;
        ensureCells(previousEnd + size_t(n));
        const int32_t *sourceAt = s.cellAt.data();
        const int32_t *sourceTotal = s.cellTotal.data();
        int32_t *targetAt = s.cellAt.data();
        int32_t *targetTotal = s.cellTotal.data();
        int32_t *targetFrom = s.cellFrom.data();

        int32_t best = none;
        int32_t bestAt = -1;
        rowBest = none;
        int32_t head = 0;
        int32_t tail = 0;
        size_t source = previousBegin;
        const int32_t firstSource = sourceAt[previousBegin];
        const uint32_t wanted = query[i];
        const int32_t stop = s.high[size_t(i)] + 1;
        for (int32_t j =
                 findForward(name, std::max(s.low[size_t(i)], firstSource + 1), stop, wanted);
             j >= 0; j = findForward(name, j + 1, stop, wanted)) {
            while (source < previousEnd && sourceAt[source] <= j - 2) {
                const int32_t k = sourceAt[source];
                const int32_t v = sourceTotal[source] + k;
                if (best < v) {
                    best = v;
                    bestAt = k;
                }
                while (tail > head && queueValue[tail - 1] <= v)
                    --tail;
                queueAt[tail] = k;
                queueValue[tail] = v;
                ++tail;
                ++source;
            }
            while (tail > head && queueAt[head] < lastLetters[j])
                ++head;

            int32_t total = none;
            int32_t from = -1;
            if (source < previousEnd && sourceAt[source] == j - 1) {
                total = sourceTotal[source] + consecutiveBonus;
                from = j - 1;
            }
            if ((flagsAt(name, j) & bonusMask) > plainBonus) {
                if (bestAt >= 0 && total < best - j + 1) {
                    total = best - j + 1;
                    from = bestAt;
                }
            } else if (tail > head && total < queueValue[head] - j + 1) {
                total = queueValue[head] - j + 1;
                from = queueAt[head];
            }
            if (from < 0)
                continue;
            targetAt[write] = j;
            targetTotal[write] = total + (flagsAt(name, j) & bonusMask);
            rowBest = std::max(rowBest, targetTotal[write]);
            if (tracing)
                targetFrom[write] = from;
            ++write;
        }
        if (write == previousEnd)
            return std::nullopt;
        if (isOutOfReach(rowBest, i))
            return KernelOutcome{.isPruned = true};
        if (tracing) {
            s.rowBegin[size_t(i)] = int32_t(previousEnd);
            cells = write;
        } else {
            const size_t count = write - previousEnd;
            std::memmove(targetAt, targetAt + previousEnd, count * sizeof(int32_t));
            std::memmove(targetTotal, targetTotal + previousEnd, count * sizeof(int32_t));
            cells = count;
        }
    }

    const size_t lastBegin = tracing ? size_t(s.rowBegin[size_t(m) - 1]) : 0;
    if (lastBegin == cells)
        return std::nullopt;
    size_t chosen = lastBegin;
    for (size_t c = lastBegin + 1; c < cells; ++c)
        if (s.cellTotal[c] > s.cellTotal[chosen])
            chosen = c;
    KernelOutcome outcome{s.cellTotal[chosen], s.cellAt[chosen]};

    if (tracing) {
        positions->resize(m);
        size_t cell = chosen;
        for (int32_t i = m - 1;; --i) {
            (*positions)[i] = s.cellAt[cell];
            if (i == 0)
                break;
            const int32_t from = s.cellFrom[cell];
            // Rows are in increasing position order: find the source cell by bisection.
            size_t lo = size_t(s.rowBegin[size_t(i) - 1]);
            size_t hi = size_t(s.rowBegin[size_t(i)]);
            while (lo + 1 < hi) {
                const size_t mid = (lo + hi) / 2;
                if (s.cellAt[mid] <= from)
                    lo = mid;
                else
                    hi = mid;
            }
            cell = lo;
        }
    }
    return outcome;
}

} // namespace

bool occursInOrder(std::string_view bytes, const uint32_t *query, int32_t m)
{
    const AsciiName<char> name{bytes.data(), int32_t(bytes.size())};
    int32_t at = 0;
    for (int32_t i = 0; i < m; ++i) {
        at = findForward(name, at, name.count, query[i]);
        if (at < 0)
            return false;
        ++at;
    }
    return true;
}

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

template <typename Name>
std::optional<KernelOutcome> runKernel(const Name &name, const uint32_t *query, int32_t m,
                                       KernelScratch &scratch, std::vector<int32_t> *positions,
                                       int32_t mustReach, const int32_t *gainAfter)
{
    return kernel(name, query, m, scratch, positions, mustReach, gainAfter);
}

template std::optional<KernelOutcome> runKernel(const AsciiName<char> &, const uint32_t *, int32_t,
                                                KernelScratch &, std::vector<int32_t> *, int32_t,
                                                const int32_t *);
template std::optional<KernelOutcome> runKernel(const InternedName &, const uint32_t *, int32_t,
                                                KernelScratch &, std::vector<int32_t> *, int32_t,
                                                const int32_t *);

} // namespace pindle::detail
