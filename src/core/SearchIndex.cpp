#include "core/SearchIndex.h"

#include "core/Collation.h"
#include "core/FileIndex.h"
#include "core/MatchKernel.h"
#include "core/ShortcutURL.h"
#include "core/Text.h"
#include "core/Unicode.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>

namespace pindle::detail {
namespace {

// Above this many kept results the hits are collected and sorted instead of inserted into a
// short ordered list.
constexpr qsizetype insertionLimit = 64;

struct CharacterInfo
{
    uint32_t id = 0; // of the character's canonical form
    uint8_t characterClass = 0;
};

constexpr std::array<CharacterInfo, 128> asciiInfo = [] {
    std::array<CharacterInfo, 128> table{};
    for (uint32_t c = 0; c < 128; ++c) {
        uint8_t characterClass = 0;
        if (c >= 'a' && c <= 'z')
            characterClass = lowercaseClass | letterClass;
        else if (c >= 'A' && c <= 'Z')
            characterClass = uppercaseClass | letterClass;
        else if (separators.find(char16_t(c)) != std::u16string_view::npos)
            characterClass = separatorClass;
        table[c] = {c, characterClass};
    }
    return table;
}();

constexpr uint8_t asciiLower(uint32_t c)
{
    return uint8_t(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
}

// Letters and digits get a bit each; other ASCII and all other characters share the rest.
constexpr uint64_t maskBit(uint32_t id)
{
    if (id >= 'a' && id <= 'z')
        return uint64_t(1) << (id - 'a');
    if (id >= '0' && id <= '9')
        return uint64_t(1) << (26 + id - '0');
    if (id < 128)
        return uint64_t(1) << (36 + id % 20);
    return uint64_t(1) << (56 + id % 8);
}

// A text whose every character is a single ASCII code unit: all of ASCII except CR, which
// forms one character with a following LF.
bool isPlainAscii(QStringView text)
{
    for (QChar c : text)
        if (c.unicode() >= 0x80 || c.unicode() == u'\r')
            return false;
    return true;
}

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
    CharacterInfo info(QStringView character)
    {
        if (character.size() == 1 && character[0].unicode() < 0x80)
            return asciiInfo[character[0].unicode()];
        const std::u16string_view text(reinterpret_cast<const char16_t *>(character.utf16()),
                                       size_t(character.size()));
        const auto known = m_byText.find(text);
        if (known != m_byText.end())
            return known->second;

        const QString form = Unicode::decomposed(character);
        CharacterInfo made;
        if (form.size() == 1 && form[0].unicode() < 0x80) {
            made.id = form[0].unicode();
        } else {
            const auto [entry, isNew] = m_byForm.try_emplace(form.toStdU16String(), m_nextId);
            if (isNew)
                ++m_nextId;
            made.id = entry->second;
        }
        if (Unicode::isLowercase(character))
            made.characterClass |= lowercaseClass;
        if (Unicode::isUppercase(character))
            made.characterClass |= uppercaseClass;
        if (Unicode::isLetter(character))
            made.characterClass |= letterClass;
        m_byText.emplace(std::u16string(text), made);
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

void prepareAscii(PreparedName &prepared, QStringView name)
{
    const auto n = int32_t(name.size());
    prepared.bytes = std::make_unique_for_overwrite<uint8_t[]>(size_t(n) * 2);
    uint8_t *lowered = prepared.bytes.get();
    uint8_t *flags = lowered + n;
    const char16_t *text = reinterpret_cast<const char16_t *>(name.utf16());
    uint8_t previousClass = 0;
    uint64_t mask = 0;
    for (int32_t j = 0; j < n; ++j) {
        const uint32_t c = text[j];
        const uint8_t currentClass = asciiInfo[c].characterClass;
        lowered[j] = asciiLower(c);
        flags[j] = positionFlags(j == 0, previousClass, currentClass);
        previousClass = currentClass;
        mask |= maskBit(lowered[j]);
    }
    prepared.mask = mask;
}

void prepareUnicode(PreparedName &prepared, QStringView name)
{
    prepared.isAscii = false;
    const std::vector<qsizetype> bounds = Unicode::clusterBoundaries(name);
    const auto n = int32_t(bounds.size() - 1);
    prepared.count = n;
    const QString lowered = Unicode::lowercased(name);
    const std::vector<qsizetype> loweredBounds = Unicode::clusterBoundaries(lowered);
    // Characters are paired with their lowercase by position; when lowercasing merged some,
    // the pairing is lost and the name never matches (as in FuzzyMatch::match).
    if (loweredBounds.size() < bounds.size()) {
        prepared.isMatchable = false;
        return;
    }
    prepared.bytes = std::make_unique_for_overwrite<uint8_t[]>(size_t(n));
    prepared.ids = std::make_unique_for_overwrite<uint32_t[]>(size_t(n));
    CharacterTable &table = characterTable();
    const auto guard = table.lock();
    uint8_t previousClass = 0;
    uint64_t mask = 0;
    for (int32_t j = 0; j < n; ++j) {
        const QStringView character =
            name.sliced(bounds[size_t(j)], bounds[size_t(j) + 1] - bounds[size_t(j)]);
        const uint8_t currentClass = table.info(character).characterClass;
        prepared.bytes[size_t(j)] = positionFlags(j == 0, previousClass, currentClass);
        previousClass = currentClass;
        const QStringView loweredCharacter = QStringView(lowered).sliced(
            loweredBounds[size_t(j)], loweredBounds[size_t(j) + 1] - loweredBounds[size_t(j)]);
        prepared.ids[size_t(j)] = table.info(loweredCharacter).id;
        mask |= maskBit(prepared.ids[size_t(j)]);
    }
    prepared.mask = mask;
}

KernelScratch &scratch()
{
    thread_local KernelScratch instance;
    return instance;
}

bool couldMatch(const PreparedQuery &query, const PreparedName &name)
{
    return name.isMatchable && name.count >= int32_t(query.ids.size()) &&
           (query.mask & ~name.mask) == 0;
}

std::optional<KernelOutcome> runPrepared(const PreparedQuery &query, const PreparedName &name,
                                         QList<qsizetype> *positions = nullptr)
{
    const auto m = int32_t(query.ids.size());
    if (name.isAscii)
        return runKernel(name.bytes.get(), name.flags(), name.count, query.ids.data(), m, scratch(),
                         positions);
    return runKernel(name.ids.get(), name.flags(), name.count, query.ids.data(), m, scratch(),
                     positions);
}

// Whether the ASCII-only query can be a subsequence of the line, ignoring ASCII case. A
// character that lowercases to a plain ASCII one is that ASCII letter in either case, except
// the Kelvin sign (k), so this holds for every line the query matches.
bool mayContain(const PreparedQuery &query, std::string_view line)
{
    size_t at = 0;
    for (const uint32_t id : query.ids) {
        const char wanted = char(id);
        const char other = char(id >= 'a' && id <= 'z' ? id - ('a' - 'A') : id);
        while (at < line.size() && line[at] != wanted && line[at] != other)
            ++at;
        if (at == line.size())
            return false;
        ++at;
    }
    return true;
}

} // namespace

std::shared_ptr<const PreparedName> prepareName(const QString &displayName, QByteArray collationKey)
{
    auto prepared = std::make_shared<PreparedName>();
    prepared->name = displayName;
    prepared->collationKey = std::move(collationKey);
    if (isPlainAscii(displayName)) {
        prepared->count = int32_t(displayName.size());
        prepareAscii(*prepared, displayName);
    } else {
        prepareUnicode(*prepared, displayName);
    }
    return prepared;
}

PreparedQuery prepareQuery(QStringView query)
{
    PreparedQuery prepared;
    if (isPlainAscii(query)) {
        prepared.ids.reserve(size_t(query.size()));
        for (QChar c : query)
            prepared.ids.push_back(asciiLower(c.unicode()));
    } else {
        const QString lowered = Unicode::lowercased(query);
        const std::vector<qsizetype> bounds = Unicode::clusterBoundaries(lowered);
        CharacterTable &table = characterTable();
        const auto guard = table.lock();
        for (size_t c = 0; c + 1 < bounds.size(); ++c)
            prepared.ids.push_back(
                table.info(QStringView(lowered).sliced(bounds[c], bounds[c + 1] - bounds[c])).id);
    }
    for (const uint32_t id : prepared.ids) {
        prepared.mask |= maskBit(id);
        prepared.isAscii = prepared.isAscii && id < 0x80;
    }
    return prepared;
}

std::optional<double> score(const PreparedQuery &query, const PreparedName &name)
{
    if (query.ids.empty() || !couldMatch(query, name))
        return std::nullopt;
    const std::optional<KernelOutcome> outcome = runPrepared(query, name);
    if (!outcome)
        return std::nullopt;
    return finalScore(outcome->total, name.count);
}

std::optional<double> scoreUtf8(const PreparedQuery &query, std::string_view line)
{
    if (query.ids.empty())
        return std::nullopt;
    const bool isAscii = std::none_of(line.begin(), line.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0x80) || c == '\r';
    });
    if (isAscii) {
        if (!query.isAscii || line.size() < query.ids.size() || !mayContain(query, line))
            return std::nullopt;
        const auto n = int32_t(line.size());
        thread_local std::vector<uint8_t> bytes;
        bytes.resize(size_t(n) * 2);
        uint8_t *lowered = bytes.data();
        uint8_t *flags = lowered + n;
        uint8_t previousClass = 0;
        for (int32_t j = 0; j < n; ++j) {
            const auto c = static_cast<unsigned char>(line[size_t(j)]);
            const uint8_t currentClass = asciiInfo[c].characterClass;
            lowered[j] = asciiLower(c);
            flags[j] = positionFlags(j == 0, previousClass, currentClass);
            previousClass = currentClass;
        }
        const std::optional<KernelOutcome> outcome =
            runKernel(lowered, flags, n, query.ids.data(), int32_t(query.ids.size()), scratch());
        if (!outcome)
            return std::nullopt;
        return finalScore(outcome->total, n);
    }
    const bool hasKelvinCase =
        std::find(query.ids.begin(), query.ids.end(), uint32_t('k')) != query.ids.end();
    if (query.isAscii && !hasKelvinCase && !mayContain(query, line))
        return std::nullopt;
    const std::shared_ptr<const PreparedName> name =
        prepareName(QString::fromUtf8(line.data(), qsizetype(line.size())), {});
    return score(query, *name);
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

} // namespace

QList<ScoredFile> search(const QString &query, const QList<IndexedFile> &files, qsizetype limit)
{
    const QString trimmed = Text::trimmedWhitespace(query);
    if (trimmed.isEmpty() || limit <= 0)
        return {};
    const detail::PreparedQuery prepared = detail::prepareQuery(trimmed);

    // Records made without prepared data, or whose name changed since, are prepared here and
    // kept alive for the rest of the search.
    std::vector<std::shared_ptr<const PreparedName>> madeHere;
    CollationKeys keys;
    std::vector<Hit> kept;
    const bool isInserting = limit <= detail::insertionLimit;
    kept.reserve(size_t(isInserting ? limit + 1 : files.size()));

    for (qsizetype index = 0; index < files.size(); ++index) {
        const IndexedFile &file = files[index];
        const PreparedName *name = file.prepared.get();
        if (!isCurrent(name, file.displayName)) {
            madeHere.push_back(detail::prepareName(file.displayName, {}));
            name = madeHere.back().get();
        }
        const std::optional<double> score = detail::score(prepared, *name);
        if (!score)
            continue;
        const Hit hit{*score, index, name};
        if (!isInserting) {
            kept.push_back(hit);
            continue;
        }
        if (qsizetype(kept.size()) == limit && !keys.isBefore(hit, kept.back()))
            continue;
        auto place = kept.end();
        while (place != kept.begin() && keys.isBefore(hit, *(place - 1)))
            --place;
        kept.insert(place, hit);
        if (qsizetype(kept.size()) > limit)
            kept.pop_back();
    }
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
        detail::runPrepared(prepared, *hit.name, &row.positions);
        results.push_back(std::move(row));
    }
    return results;
}

QList<ScoredFile> matching(const QString &url, const QList<IndexedFile> &files, qsizetype limit)
{
    const QString trimmed = Text::trimmedWhitespaceAndNewlines(url);
    if (trimmed.isEmpty())
        return {};
    QList<ScoredFile> results;
    // Every target is read, also after the last kept one, so that all of them are cached.
    for (const IndexedFile &file : files) {
        const std::optional<QString> target = ShortcutURL::target(file.url);
        if (target && results.size() < limit && Unicode::canonicallyEqual(*target, trimmed))
            results.push_back(ScoredFile{file, 0, {}});
    }
    return results;
}

} // namespace pindle::FileIndex
