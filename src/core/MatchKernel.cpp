#include "core/MatchKernel.h"

#include <cstring>
#include <limits>

// The recurrence is evaluated sparsely: a row keeps only the positions where its query
// character occurs and an alignment can end, in increasing order, and each row is confined to
// the positions between the earliest and the latest placement of its character that still
// leaves room for the rest of the query. Cells outside those bounds can never be part of a
// complete alignment, and the running maximum and the window queue see the same sources in the
// same order as a dense sweep would, so totals and tie-breaks are those of the dense tables.
namespace pindle::detail {
namespace {

constexpr int32_t none = std::numeric_limits<int32_t>::min();

// First index in [from, to) holding id, or -1.
int32_t findForward(const uint8_t *ids, int32_t from, int32_t to, uint32_t id)
{
    if (from >= to || id > 0xFF)
        return -1;
    const void *hit = std::memchr(ids + from, int(id), size_t(to - from));
    return hit ? int32_t(static_cast<const uint8_t *>(hit) - ids) : -1;
}

int32_t findForward(const uint32_t *ids, int32_t from, int32_t to, uint32_t id)
{
    for (int32_t j = from; j < to; ++j)
        if (ids[j] == id)
            return j;
    return -1;
}

// Last index in [0, to) holding id, or -1.
int32_t findBackward(const uint8_t *ids, int32_t to, uint32_t id)
{
    if (to <= 0 || id > 0xFF)
        return -1;
    const void *hit = memrchr(ids, int(id), size_t(to));
    return hit ? int32_t(static_cast<const uint8_t *>(hit) - ids) : -1;
}

int32_t findBackward(const uint32_t *ids, int32_t to, uint32_t id)
{
    for (int32_t j = to - 1; j >= 0; --j)
        if (ids[j] == id)
            return j;
    return -1;
}

template <typename Id>
std::optional<KernelOutcome> kernel(const Id *ids, const uint8_t *flags, int32_t n,
                                    const uint32_t *query, int32_t m, KernelScratch &s,
                                    QList<qsizetype> *positions)
{
    if (m <= 0 || n < m)
        return std::nullopt;

    // Quick rejection, and the earliest placement of each query character.
    s.low.resize(size_t(m));
    s.high.resize(size_t(m));
    int32_t at = 0;
    for (int32_t i = 0; i < m; ++i) {
        at = findForward(ids, at, n, query[i]);
        if (at < 0)
            return std::nullopt;
        s.low[size_t(i)] = at++;
    }
    at = n;
    for (int32_t i = m - 1; i >= 0; --i)
        s.high[size_t(i)] = at = findBackward(ids, at, query[i]);

    const bool tracing = positions != nullptr;
    s.rowBegin.resize(size_t(m) + 1);
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
    for (int32_t j = s.low[0]; j >= 0; j = findForward(ids, j + 1, s.high[0] + 1, query[0])) {
        s.cellAt[cells] = j;
        s.cellTotal[cells] = (flags[j] & bonusMask) - j;
        s.cellFrom[cells] = -1;
        ++cells;
    }

    if (s.queueAt.size() < size_t(n)) {
        s.queueAt.resize(size_t(n));
        s.queueValue.resize(size_t(n));
    }
    int32_t *queueAt = s.queueAt.data();
    int32_t *queueValue = s.queueValue.data();

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
        int32_t head = 0;
        int32_t tail = 0;
        size_t source = previousBegin;
        const int32_t firstSource = sourceAt[previousBegin];
        // No source lies before firstSource, so a last letter before it evicts nothing.
        int32_t lastLetter = firstSource;
        int32_t scanned = firstSource;
        const uint32_t wanted = query[i];
        const int32_t stop = s.high[size_t(i)] + 1;
        for (int32_t j =
                 findForward(ids, std::max(s.low[size_t(i)], firstSource + 1), stop, wanted);
             j >= 0; j = findForward(ids, j + 1, stop, wanted)) {
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
            for (; scanned < j; ++scanned)
                if (flags[scanned] & letterFlag)
                    lastLetter = scanned;
            while (tail > head && queueAt[head] < lastLetter)
                ++head;

            int32_t total = none;
            int32_t from = -1;
            if (source < previousEnd && sourceAt[source] == j - 1) {
                total = sourceTotal[source] + consecutiveBonus;
                from = j - 1;
            }
            if ((flags[j] & bonusMask) > plainBonus) {
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
            targetTotal[write] = total + (flags[j] & bonusMask);
            if (tracing)
                targetFrom[write] = from;
            ++write;
        }
        if (write == previousEnd)
            return std::nullopt;
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

std::optional<KernelOutcome> runKernel(const uint8_t *ids, const uint8_t *flags, int32_t n,
                                       const uint32_t *query, int32_t m, KernelScratch &scratch,
                                       QList<qsizetype> *positions)
{
    return kernel(ids, flags, n, query, m, scratch, positions);
}

std::optional<KernelOutcome> runKernel(const uint32_t *ids, const uint8_t *flags, int32_t n,
                                       const uint32_t *query, int32_t m, KernelScratch &scratch,
                                       QList<qsizetype> *positions)
{
    return kernel(ids, flags, n, query, m, scratch, positions);
}

} // namespace pindle::detail
