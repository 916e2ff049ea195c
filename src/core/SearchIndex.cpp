#include "core/SearchIndex.h"

#include "core/Collation.h"
#include "core/FileIndex.h"
#include "core/MatchKernel.h"
#include "core/MatchText.h"
#include "core/ShortcutURL.h"
#include "core/Text.h"
#include "core/UnicodeQt.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <unordered_map>

namespace pindle::detail {
namespace {

// Above this many kept results the hits are collected and sorted instead of inserted into a
// short ordered list.
constexpr qsizetype insertionLimit = 64;

bool isPlainAscii(QStringView text)
{
    return detail::isPlainAscii(Unicode::units(text));
}

// The bytes of x, all plain ASCII, that lie in [first, last], as their high bits. No byte
// carries into the next.
constexpr uint64_t bytesInRange(uint64_t x, uint8_t first, uint8_t last)
{
    constexpr uint64_t ones = 0x0101010101010101;
    return (x + ones * (0x80 - first)) & ~(x + ones * (0x7F - last)) & (ones * 0x80);
}

// The mask and camel-case hump of a plain ASCII name, given as both its UTF-16 units and its
// bytes. Both run without a chain from one character to the next: four masks are gathered
// side by side, and humps are found eight bytes at a time.
void prepareAscii(PreparedName &prepared, const char16_t *units, const char *text, size_t n)
{
    uint64_t masks[4] = {};
    size_t i = 0;
    for (; i + 4 <= n; i += 4)
        for (size_t k = 0; k < 4; ++k)
            masks[k] |= asciiMaskBits[units[i + k]];
    for (; i < n; ++i)
        masks[0] |= asciiMaskBits[units[i]];

    uint64_t humps = 0;
    uint64_t lowercaseBefore = 0; // the last byte of the previous eight, if lowercase
    for (size_t at = 0; at < n; at += 8) {
        uint64_t bytes = 0; // the text is little-endian in it; missing bytes are zero
        std::memcpy(&bytes, text + at, std::min<size_t>(8, n - at));
        if constexpr (std::endian::native == std::endian::big)
            bytes = std::byteswap(bytes);
        const uint64_t lowercase = bytesInRange(bytes, 'a', 'z');
        humps |= ((lowercase << 8) | lowercaseBefore) & bytesInRange(bytes, 'A', 'Z');
        lowercaseBefore = lowercase >> 56;
    }
    prepared.count = int32_t(n);
    prepared.mask = masks[0] | masks[1] | masks[2] | masks[3];
    prepared.camelHumps = uint8_t(std::min(std::popcount(humps), 255));
}

void describeUnicode(UnicodeDescription &out, QStringView name)
{
    detail::describeUnicode(out, Unicode::units(name));
}

// work is the calling thread's scratch(), looked up once per search rather than per name.
std::optional<KernelOutcome> runPrepared(const PreparedQuery &query, const PreparedName &name,
                                         KernelScratch &work, QList<qsizetype> *positions = nullptr,
                                         int32_t mustReach = std::numeric_limits<int32_t>::min(),
                                         const int32_t *gainAfter = nullptr)
{
    const auto m = int32_t(query.ids.size());
    const auto run = [&](std::vector<int32_t> *traced) {
        return name.isAscii ? runKernel(AsciiName<char>{name.text, name.count}, query.ids.data(), m,
                                        work, traced, mustReach, gainAfter)
                            : runKernel(InternedName{name.ids, name.flags, name.count},
                                        query.ids.data(), m, work, traced, mustReach);
    };
    if (positions == nullptr)
        return run(nullptr);
    thread_local std::vector<int32_t> trace;
    const std::optional<KernelOutcome> outcome = run(&trace);
    if (outcome)
        *positions = QList<qsizetype>(trace.begin(), trace.end());
    return outcome;
}

// The least total, in half points, with which a name of n characters could still equal the
// score of a hit with lastTotal over lastCount characters, with a half point to spare: each
// character of length costs a tenth of a half point. In integers, as it is asked per name.
int32_t lowestTotalFor(int32_t lastTotal, int32_t lastCount, int32_t n)
{
    const int32_t longer = n - lastCount;
    const int32_t tenths = longer >= 0 ? longer / 10 : -((9 - longer) / 10);
    return lastTotal + tenths - 1;
}

// Prepared names are stored in blocks, each shared by the names in it: records from the start,
// the character arrays of non-ASCII names from the end. Preparing a plain name then allocates
// nothing of its own.
//
// Fresh memory is what preparing costs most on virtual machines: each new page costs a fault to
// map it and, under shadow paging, a second one on first touch. So a block's pages are mapped
// in one call, small blocks come from the heap (a freed block's pages are reused by the next
// one, and are given back with the rest of the free heap), and a batch of names announced to
// fill huge pages gets blocks of one huge page, which map and touch at the cost of a single
// page. Only such batches do: a huge block that is barely used would double a small
// collection's memory.
thread_local size_t expectedNames = 0;

class NameBlock
{
public:
    static constexpr size_t smallSize = size_t(64) << 10;
    static constexpr size_t largeSize = size_t(2) << 20;
    // What a plain name of usual length takes, with its collation key, to size a batch.
    static constexpr size_t usualNameBytes = sizeof(PreparedName) + 64;

    static size_t nextSize()
    {
        return expectedNames * usualNameBytes >= largeSize ? largeSize : smallSize;
    }

    explicit NameBlock(size_t size) : m_size(size), m_arraysAt(size)
    {
        m_memory = size == largeSize ? mapHuge() : static_cast<std::byte *>(std::malloc(size));
        if (m_memory == nullptr)
            return;
        populate(m_memory, size);
    }
    NameBlock(const NameBlock &) = delete;
    NameBlock &operator=(const NameBlock &) = delete;
    ~NameBlock()
    {
        if (m_memory == nullptr)
            return;
        for (size_t i = 0; i < m_count; ++i)
            reinterpret_cast<PreparedName *>(m_memory)[i].~PreparedName();
        if (m_size == largeSize)
            ::munmap(m_memory, m_size);
        else
            std::free(m_memory);
    }

    // A new record with room for arrays of the given size, or null when the block is full.
    PreparedName *take(size_t arrayBytes, std::byte *&arrays)
    {
        arrayBytes = (arrayBytes + alignof(uint32_t) - 1) & ~(alignof(uint32_t) - 1);
        if (m_memory == nullptr || (m_count + 1) * sizeof(PreparedName) + arrayBytes > m_arraysAt)
            return nullptr;
        m_arraysAt -= arrayBytes;
        arrays = m_memory + m_arraysAt;
        return new (m_memory + m_count++ * sizeof(PreparedName)) PreparedName;
    }

private:
    // One huge page's worth, aligned to it so that the kernel can back it with one.
    static std::byte *mapHuge()
    {
        void *mapped = ::mmap(nullptr, 2 * largeSize, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED)
            return nullptr;
        auto *start = static_cast<std::byte *>(mapped);
        auto *aligned = reinterpret_cast<std::byte *>(
            (reinterpret_cast<uintptr_t>(start) + largeSize - 1) & ~(uintptr_t(largeSize) - 1));
        if (aligned > start)
            ::munmap(start, size_t(aligned - start));
        ::munmap(aligned + largeSize, size_t(start + 2 * largeSize - (aligned + largeSize)));
        ::madvise(aligned, largeSize, MADV_HUGEPAGE);
        return aligned;
    }

    // Maps the block's whole pages now, in one call, instead of one fault at a time; pages
    // the heap has used before are already there.
    static void populate(std::byte *memory, size_t size)
    {
        const auto page = uintptr_t(::sysconf(_SC_PAGESIZE));
        const uintptr_t begin = (reinterpret_cast<uintptr_t>(memory) + page - 1) & ~(page - 1);
        const uintptr_t end = (reinterpret_cast<uintptr_t>(memory) + size) & ~(page - 1);
        if (end > begin)
            ::madvise(reinterpret_cast<void *>(begin), end - begin, MADV_POPULATE_WRITE);
    }

    std::byte *m_memory = nullptr;
    size_t m_size;
    size_t m_count = 0;
    size_t m_arraysAt;
};

// A record for a name whose non-ASCII description needs arrayBytes, with arrays pointing at
// storage that lives as long as the record.
std::shared_ptr<PreparedName> newPreparedName(size_t arrayBytes, std::byte *&arrays)
{
    thread_local std::shared_ptr<NameBlock> block;
    if (arrayBytes < NameBlock::smallSize / 4) {
        for (int attempt = 0; attempt < 2; ++attempt) {
            if (!block)
                block = std::make_shared<NameBlock>(NameBlock::nextSize());
            if (PreparedName *name = block->take(arrayBytes, arrays))
                return std::shared_ptr<PreparedName>(block, name);
            block = std::make_shared<NameBlock>(NameBlock::nextSize());
        }
    }
    auto name = std::make_shared<PreparedName>();
    name->ownStorage = std::make_unique_for_overwrite<std::byte[]>(arrayBytes);
    arrays = name->ownStorage.get();
    return name;
}

} // namespace

NameBatch::NameBatch(size_t count) : m_previous(expectedNames)
{
    expectedNames = count;
}

NameBatch::~NameBatch()
{
    expectedNames = m_previous;
}

std::shared_ptr<const PreparedName> prepareName(const QString &displayName,
                                                QByteArrayView collationKey)
{
    // The key is stored beside the name's arrays, so that a prepared name costs no allocation
    // of its own.
    const auto keySize = size_t(collationKey.size());
    std::byte *arrays = nullptr;
    std::shared_ptr<PreparedName> prepared;
    const auto *units = reinterpret_cast<const char16_t *>(displayName.utf16());
    if (isPlainAscii(QStringView(displayName))) {
        const auto n = size_t(displayName.size());
        prepared = newPreparedName(n + keySize, arrays);
        auto *text = reinterpret_cast<char *>(arrays);
        for (size_t i = 0; i < n; ++i)
            text[i] = char(units[i]);
        prepared->text = text;
        prepareAscii(*prepared, units, text, n);
        arrays += n;
    } else {
        thread_local UnicodeDescription description;
        describeUnicode(description, QStringView(displayName));
        const auto n = size_t(description.ids.size());
        prepared = newPreparedName(n * (sizeof(uint32_t) + sizeof(uint8_t)) + keySize, arrays);
        auto *ids = reinterpret_cast<uint32_t *>(arrays);
        auto *flags = reinterpret_cast<uint8_t *>(ids + n);
        std::copy(description.ids.begin(), description.ids.end(), ids);
        std::copy(description.flags.begin(), description.flags.end(), flags);
        prepared->ids = ids;
        prepared->flags = flags;
        prepared->isAscii = false;
        prepared->isMatchable = description.isMatchable;
        prepared->count = description.count;
        prepared->mask = description.mask;
        prepared->camelHumps = uint8_t(std::min<ptrdiff_t>(
            std::count_if(flags, flags + n,
                          [](uint8_t f) { return (f & bonusMask) == camelHumpBonus; }),
            255));
        arrays = reinterpret_cast<std::byte *>(flags + n);
    }
    prepared->name = displayName;
    if (keySize > 0) {
        auto *key = reinterpret_cast<char *>(arrays);
        std::copy(collationKey.begin(), collationKey.end(), key);
        prepared->collationKey = QByteArray::fromRawData(key, qsizetype(keySize));
    }
    return prepared;
}

PreparedQuery prepareQuery(QStringView query)
{
    return prepareQuery(Unicode::units(query));
}

} // namespace pindle::detail

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

// The prepared data when it was made from this very name; the pointer test settles the usual
// case where both share one string.
bool isCurrent(const PreparedName *prepared, const QString &displayName)
{
    if (prepared == nullptr)
        return false;
    if (prepared->name.constData() == displayName.constData() &&
        prepared->name.size() == displayName.size())
        return true;
    return prepared->name == displayName;
}

// What a search reads of each record, side by side so that a scan of the whole list streams
// through little memory.
struct IndexEntry
{
    uint64_t mask;
    int32_t count;
    uint32_t first; // id of the first character
    bool isMatchable;
    uint8_t camelHumps;
    // A plain ASCII name's characters, so that scoring it needs nothing else of the record;
    // null for other names.
    const char *text;
    const PreparedName *name;
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

// The list searched last on this thread, with its dense index and the candidates of the last
// query. The list is kept referenced, so the same data pointer means the same, unchanged
// records: a list shared with this copy detaches before any change.
struct ListIndex
{
    QList<IndexedFile> files;
    std::vector<IndexEntry> entries;
    // Prepared here for records made without prepared data, or renamed since.
    std::vector<std::shared_ptr<const PreparedName>> preparedHere;
    std::vector<uint32_t> lastQuery;
    // Every name that passed the quick rejection of lastQuery, in list order.
    std::vector<int32_t> lastCandidates;
    // The storage the next search collects its candidates in: the two take turns, so that a
    // key stroke allocates (and faults in) nothing once they have grown.
    std::vector<int32_t> nextCandidates;
    bool hasLastQuery = false;

    bool isFor(const QList<IndexedFile> &list) const
    {
        return files.constData() == list.constData() && files.size() == list.size();
    }

    void rebuild(const QList<IndexedFile> &list)
    {
        files = list;
        entries.clear();
        entries.reserve(size_t(list.size()));
        preparedHere.clear();
        hasLastQuery = false;
        for (const IndexedFile &file : list) {
            const PreparedName *name = file.prepared.get();
            if (!isCurrent(name, file.displayName)) {
                preparedHere.push_back(detail::prepareName(file.displayName, {}));
                name = preparedHere.back().get();
            }
            uint32_t first = 0;
            if (name->isMatchable && name->count > 0)
                first = name->isAscii ? detail::asciiLower(uint8_t(name->text[0])) : name->ids[0];
            entries.push_back({name->mask, name->count, first, name->isMatchable, name->camelHumps,
                               name->isAscii ? name->text : nullptr, name});
        }
    }
};

ListIndex &listIndex()
{
    thread_local ListIndex index;
    return index;
}

} // namespace

QList<ScoredFile> search(const QString &query, const QList<IndexedFile> &files, qsizetype limit)
{
    const QString trimmed = Text::trimmedWhitespace(query);
    if (trimmed.isEmpty() || limit <= 0)
        return {};
    const detail::PreparedQuery prepared = detail::prepareQuery(QStringView(trimmed));
    const auto m = int32_t(prepared.ids.size());

    ListIndex &index = listIndex();
    detail::KernelScratch &work = detail::scratch();
    if (!index.isFor(files))
        index.rebuild(files);
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
    const bool isInserting = limit <= detail::insertionLimit;
    kept.reserve(size_t(isInserting ? limit + 1 : files.size()));

    // By count of humps, up to one per step.
    std::vector<std::vector<int32_t>> gainsByHumps;
    for (int32_t humps = 0; humps < std::max(m, 1); ++humps)
        gainsByHumps.push_back(gainsAfter(prepared.ids, humps));
    auto consider = [&](int32_t at) {
        const IndexEntry &entry = index.entries[size_t(at)];
        if (!entry.isMatchable || entry.count < m || (prepared.mask & ~entry.mask) != 0)
            return;
        // Once the kept rows are full, a name that cannot even tie the last of them needs no
        // exact total; it stays a candidate for narrowing all the same.
        int32_t mustReach = std::numeric_limits<int32_t>::min();
        const int32_t *gainAfter = nullptr;
        if (isInserting && qsizetype(kept.size()) == limit) {
            mustReach = detail::lowestTotalFor(kept.back().total, kept.back().count, entry.count);
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
        const std::optional<detail::KernelOutcome> outcome =
            entry.text != nullptr
                ? detail::runKernel(detail::AsciiName<char>{entry.text, entry.count},
                                    prepared.ids.data(), m, work, nullptr, mustReach, gainAfter)
                : detail::runPrepared(prepared, *entry.name, work, nullptr, mustReach, gainAfter);
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
        ScoredFile row{files[hit.index], hit.score, {}};
        detail::runPrepared(prepared, *hit.name, work, &row.positions);
        results.push_back(std::move(row));
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
        const bool isAscii =
            std::all_of(target.cbegin(), target.cend(), [](QChar c) { return c.unicode() < 0x80; });
        return isAscii ? target == decomposedUrl
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

namespace pindle::detail {

void forgetSearchedList()
{
    FileIndex::listIndex() = {};
}

} // namespace pindle::detail
