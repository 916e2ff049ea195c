// The launcher's and the creator's searches over the scanned list.

#include "core/Collation.h"
#include "core/FileIndex.h"
#include "core/MatchKernel.h"
#include "core/MatchText.h"
#include "core/SearchIndex.h"
#include "core/SearchSession.h"
#include "core/ShortcutURL.h"
#include "core/Text.h"
#include "core/UnicodeQt.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <unordered_map>
#include <vector>

namespace pindle::FileIndex {
namespace {

using detail::PreparedName;

// One hit during a search: enough to order it without touching the file record.
struct Hit
{
    double score;
    qsizetype index;
    const PreparedName *name;
    int32_t total; // the score's parts: its total in half points, the characters of the name
    int32_t count;
};

// The sort keys of a search, taken from the prepared names or computed once when missing.
class CollationKeys
{
public:
    const QByteArray &of(const Hit &hit)
    {
        if (!hit.name->collationKey.isEmpty() || hit.name->name.isEmpty())
            return hit.name->collationKey;
        auto known = m_computed.find(hit.index);
        if (known == m_computed.end())
            known = m_computed.emplace(hit.index, Collation::sortKey(hit.name->name)).first;
        return known->second;
    }

    // Higher score first, then the name order, then the order of the list.
    bool isBefore(const Hit &a, const Hit &b)
    {
        if (a.score != b.score)
            return a.score > b.score;
        const QByteArray &keyA = of(a);
        const QByteArray &keyB = of(b);
        const int order = std::memcmp(keyA.constData(), keyB.constData(),
                                      size_t(std::min(keyA.size(), keyB.size())));
        if (order != 0)
            return order < 0;
        if (keyA.size() != keyB.size())
            return keyA.size() < keyB.size();
        return a.index < b.index;
    }

private:
    std::unordered_map<qsizetype, QByteArray> m_computed;
};

// For each query character, the most the characters after it can add to a total, in a name
// with `humps` camel-case humps. A step gains more than a consecutive plain character only
// after a separator in the query, or by landing right after the last character on a hump;
// each hump serves one step.
std::vector<int32_t> gainsAfter(const std::vector<uint32_t> &query, int32_t humps)
{
    const auto m = int32_t(query.size());
    std::vector<int32_t> gains(size_t(m), 0);
    for (int32_t i = m - 1; i-- > 0;) {
        const bool isSeparator = query[size_t(i)] < 0x80 &&
                                 (detail::asciiClasses[query[size_t(i)]] & detail::separatorClass);
        const int32_t step =
            isSeparator ? detail::maximalStep : std::max(detail::plainStep, detail::jumpStep);
        gains[size_t(i)] = gains[size_t(i) + 1] + step;
    }
    constexpr int32_t humpGain = detail::camelHumpBonus - detail::plainBonus;
    for (int32_t i = 0; i < m; ++i)
        gains[size_t(i)] += humpGain * std::min(humps, m - 1 - i);
    return gains;
}

// Above this many kept results the hits are collected and sorted instead of inserted into a
// short ordered list.
constexpr qsizetype insertionLimit = 64;

// The least total, in half points, with which a name of n characters could still equal the
// score of a hit with lastTotal over lastCount characters, with a half point to spare: each
// character of length costs a tenth of a half point. In integers, as it is asked per name.
int32_t lowestTotalFor(int32_t lastTotal, int32_t lastCount, int32_t n)
{
    const int32_t longer = n - lastCount;
    const int32_t tenths = longer >= 0 ? longer / 10 : -((9 - longer) / 10);
    return lastTotal + tenths - 1;
}

std::optional<detail::KernelOutcome>
align(const detail::PreparedName &name, const detail::PreparedQuery &query,
      detail::KernelScratch &scratch, std::vector<int32_t> *positions = nullptr,
      int32_t mustReach = std::numeric_limits<int32_t>::min(), const int32_t *gainAfter = nullptr)
{
    const auto m = int32_t(query.ids.size());
    if (name.isAscii)
        return detail::bestAlignment(detail::AsciiName{name.text, name.count}, query.ids.data(), m,
                                     scratch, positions, mustReach, gainAfter);
    return detail::bestAlignment(detail::InternedName{name.ids, name.flags, name.count},
                                 query.ids.data(), m, scratch, positions, mustReach, gainAfter);
}

} // namespace

QList<ScoredFile> search(const QString &query, const QList<IndexedFile> &files, qsizetype limit)
{
    SearchSession session;
    return search(query, files, limit, session);
}

QList<ScoredFile> search(const QString &query, const QList<IndexedFile> &files, qsizetype limit,
                         SearchSession &session)
{
    const QString trimmed = Text::trimmedWhitespace(query);
    if (trimmed.isEmpty() || limit <= 0)
        return {};
    detail::SearchState &state = session.state();
    detail::ListIndex &index = state.list;
    detail::KernelScratch &work = state.scratch;
    if (!index.isFor(files)) {
        // The ids handed out for the last list go with it; the query is numbered after.
        state.ids.clear();
        index.rebuild(files, state.names);
    }
    const detail::PreparedQuery prepared = detail::prepareQuery(QStringView(trimmed), state.ids);
    const auto m = int32_t(prepared.ids.size());
    // While typing, each query usually extends the last one: then only the names that passed
    // before can pass now (an alignment of the longer query begins with one of the shorter).
    const bool isNarrowing =
        index.hasLastQuery && index.lastQuery.size() <= prepared.ids.size() &&
        std::equal(index.lastQuery.begin(), index.lastQuery.end(), prepared.ids.begin());
    std::vector<int32_t> &candidates = index.nextCandidates;
    candidates.clear();
    candidates.reserve(isNarrowing ? index.lastCandidates.size() : index.entries.size());

    CollationKeys keys;
    std::vector<Hit> kept;
    const bool isInserting = limit <= insertionLimit;
    kept.reserve(size_t(isInserting ? limit + 1 : files.size()));

    // By count of humps, up to one per step.
    std::vector<std::vector<int32_t>> gainsByHumps;
    for (int32_t humps = 0; humps < std::max(m, 1); ++humps)
        gainsByHumps.push_back(gainsAfter(prepared.ids, humps));
    auto consider = [&](int32_t at) {
        const detail::IndexEntry &entry = index.entries[size_t(at)];
        if (!entry.isMatchable || entry.count < m || (prepared.mask & ~entry.mask) != 0)
            return;
        // Once the kept rows are full, a name that cannot even tie the last of them needs no
        // exact total; it stays a candidate for narrowing all the same.
        int32_t mustReach = std::numeric_limits<int32_t>::min();
        const int32_t *gainAfter = nullptr;
        if (isInserting && qsizetype(kept.size()) == limit) {
            mustReach = lowestTotalFor(kept.back().total, kept.back().count, entry.count);
            // Only position 0 earns the start bonus, and no later position reaches it: a name
            // that doesn't begin with the query's first character is often out of reach
            // before its text is read.
            const int32_t firstBest = entry.first == prepared.ids[0]
                                          ? detail::startBonus
                                          : detail::afterSeparatorBonus - 1;
            gainAfter =
                gainsByHumps[std::min<size_t>(entry.camelHumps, gainsByHumps.size() - 1)].data();
            if (firstBest + gainAfter[0] < mustReach) {
                candidates.push_back(at);
                return;
            }
        }
        // A plain name is read from the entry alone, without touching its record.
        const std::optional<detail::KernelOutcome> outcome =
            entry.text != nullptr
                ? detail::bestAlignment(detail::AsciiName{entry.text, entry.count},
                                        prepared.ids.data(), m, work, nullptr, mustReach, gainAfter)
                : align(*entry.name, prepared, work, nullptr, mustReach, gainAfter);
        if (!outcome)
            return;
        candidates.push_back(at);
        if (outcome->isPruned)
            return;
        const Hit hit{detail::finalScore(outcome->total, entry.count), at, entry.name,
                      outcome->total, entry.count};
        if (!isInserting) {
            kept.push_back(hit);
            return;
        }
        if (qsizetype(kept.size()) == limit && !keys.isBefore(hit, kept.back()))
            return;
        auto place = kept.end();
        while (place != kept.begin() && keys.isBefore(hit, *(place - 1)))
            --place;
        kept.insert(place, hit);
        if (qsizetype(kept.size()) > limit)
            kept.pop_back();
    };
    if (isNarrowing) {
        for (const int32_t at : index.lastCandidates)
            consider(at);
    } else {
        for (int32_t at = 0; at < int32_t(index.entries.size()); ++at)
            consider(at);
    }
    index.lastQuery = prepared.ids;
    std::swap(index.lastCandidates, index.nextCandidates);
    index.hasLastQuery = true;

    if (!isInserting) {
        // The list index breaks every tie, so the order is that of a stable sort.
        const auto isBefore = [&keys](const Hit &a, const Hit &b) { return keys.isBefore(a, b); };
        if (qsizetype(kept.size()) > limit) {
            std::partial_sort(kept.begin(), kept.begin() + limit, kept.end(), isBefore);
            kept.resize(size_t(limit));
        } else {
            std::sort(kept.begin(), kept.end(), isBefore);
        }
    }

    QList<ScoredFile> results;
    results.reserve(qsizetype(kept.size()));
    for (const Hit &hit : kept) {
        align(*hit.name, prepared, work, &state.trace);
        results.push_back(ScoredFile{files[hit.index], hit.score,
                                     QList<qsizetype>(state.trace.begin(), state.trace.end())});
    }
    return results;
}

QList<ScoredFile> matching(const QString &url, const QList<IndexedFile> &files, qsizetype limit)
{
    const QString trimmed = Text::trimmedWhitespaceAndNewlines(url);
    if (trimmed.isEmpty())
        return {};
    // Unicode::canonicallyEqual, with the address decomposed once rather than once per file,
    // and no normalizer at all for ASCII targets, which are their own decomposition.
    const QString decomposedUrl = Unicode::decomposed(QStringView(trimmed));
    const auto isEqual = [&](const QString &target) {
        if (target == trimmed)
            return true;
        return Unicode::isPlainAscii(Unicode::units(target))
                   ? target == decomposedUrl
                   : Unicode::decomposed(QStringView(target)) == decomposedUrl;
    };
    // Every target is read, also after the last kept one, so that all of them are cached.
    const std::vector<std::optional<QString>> *targets = detail::cachedTargets(files);
    if (targets == nullptr) {
        detail::cacheTargets(files);
        for (const IndexedFile &file : files)
            (void)ShortcutURL::target(file.url);
        targets = detail::cachedTargets(files);
        if (targets == nullptr)
            return {};
    }
    QList<ScoredFile> results;
    for (qsizetype i = 0; i < files.size() && results.size() < limit; ++i) {
        const std::optional<QString> &target = (*targets)[size_t(i)];
        if (target && isEqual(*target))
            results.push_back(ScoredFile{files[i], 0, {}});
    }
    return results;
}

} // namespace pindle::FileIndex
