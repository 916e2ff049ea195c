#include "core/MatchKernel.h"

#include <algorithm>
#include <cstring>
#include <limits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

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

uint8_t flagsAt(const AsciiName &name, int32_t j)
{
    const uint8_t current = asciiClasses[uint8_t(name.text[j])];
    return positionFlags(j == 0, j > 0 ? asciiClasses[uint8_t(name.text[j - 1])] : 0, current);
}

bool isLetterAt(const AsciiName &name, int32_t j)
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
// says: a mask with one bit per byte that matched.
struct LaneMatcher
{
    static constexpr int32_t lanes = 16;

    explicit LaneMatcher(uint32_t id)
        : fold(_mm_set1_epi8(char(caseBit(id)))), wanted(_mm_set1_epi8(char(id)))
    {}

    int matchesAt(const char *text) const
    {
        const __m128i block =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i *>(text)), fold);
        return _mm_movemask_epi8(_mm_cmpeq_epi8(block, wanted));
    }

    __m128i fold;
    __m128i wanted;
};
#endif

// The ASCII path searches the bytes for a character, sixteen at a time; a byte equals an id
// exactly where the described name would hold that id (ids beyond ASCII occur in no such name).
int32_t findForward(const AsciiName &name, int32_t from, int32_t to, uint32_t id)
{
    if (id >= 0x80)
        return -1;
    const char fold = char(caseBit(id));
    const char wanted = char(id);
    int32_t j = from;
#ifdef __SSE2__
    const LaneMatcher matcher(id);
    for (; j + matcher.lanes <= to; j += matcher.lanes) {
        if (const int bits = matcher.matchesAt(name.text + j))
            return j + __builtin_ctz(unsigned(bits));
    }
#endif
    for (; j < to; ++j)
        if (char(name.text[j] | fold) == wanted)
            return j;
    return -1;
}

int32_t findBackward(const AsciiName &name, int32_t to, uint32_t id)
{
    if (id >= 0x80)
        return -1;
    const char fold = char(caseBit(id));
    const char wanted = char(id);
    int32_t j = to;
#ifdef __SSE2__
    const LaneMatcher matcher(id);
    for (; j - matcher.lanes >= 0; j -= matcher.lanes) {
        if (const int bits = matcher.matchesAt(name.text + j - matcher.lanes))
            return j - matcher.lanes + (31 - __builtin_clz(unsigned(bits)));
    }
#endif
    for (--j; j >= 0; --j)
        if (char(name.text[j] | fold) == wanted)
            return j;
    return -1;
}

} // namespace

template <typename Name>
std::optional<KernelOutcome> bestAlignment(const Name &name, const uint32_t *query, int32_t m,
                                           KernelScratch &s, std::vector<int32_t> *positions,
                                           int32_t mustReach, const int32_t *gainAfter)
{
    const int32_t n = name.count;
    if (m <= 0 || n < m)
        return std::nullopt;

    if (m == 1) {
        // T[0] alone: the best single position, leftmost among equals. Past position 0 no
        // bonus exceeds afterSeparatorBonus, so once that could no longer beat the best, the
        // rest is skipped.
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
        if (positions)
            *positions = {bestAt};
        return KernelOutcome{best, bestAt};
    }

    // Quick rejection, and the earliest placement of each query character: low[i] and high[i]
    // bound the positions of row i that can be part of a complete alignment.
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

    // First row, T[0]: any occurrence, paying for the characters before it.
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

template std::optional<KernelOutcome> bestAlignment(const AsciiName &, const uint32_t *, int32_t,
                                                    KernelScratch &, std::vector<int32_t> *,
                                                    int32_t, const int32_t *);
template std::optional<KernelOutcome> bestAlignment(const InternedName &, const uint32_t *, int32_t,
                                                    KernelScratch &, std::vector<int32_t> *,
                                                    int32_t, const int32_t *);

} // namespace pindle::detail
