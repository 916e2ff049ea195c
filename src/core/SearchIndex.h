#pragma once

#include "core/FileIndex.h"
#include "core/MatchKernel.h"
#include "core/MatchText.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringView>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace pindle::detail {

// What the search needs of a display name, worked out once. A plain ASCII name is kept as
// bytes, next to the other names, so that a search streams through memory. Any other name is
// described per character: an integer id of its lowercased form (a plain ASCII character is its own
// code, every other character an interned number, the same for canonically equivalent ones) and a
// flags byte (position bonus, letter).
struct PreparedName
{
    QString name; // the text prepared, to notice a record whose name was changed
    // Empty when not given; the search then computes it if needed. Refers to storage that lives
    // as long as the record.
    QByteArray collationKey;
    uint64_t mask = 0;       // one bit per class of ids present
    int32_t count = 0;       // characters of the name
    bool isMatchable = true; // false when lowercasing merged characters
    bool isAscii = true;
    uint8_t camelHumps = 0; // lowercase characters directly followed by an uppercase one (to 255)
    const char *text = nullptr;     // plain ASCII names: the characters as bytes
    const uint32_t *ids = nullptr;  // other names only, count entries
    const uint8_t *flags = nullptr; // other names only, count entries
    // Where text, ids and flags live when they are not stored beside the record.
    std::unique_ptr<std::byte[]> ownStorage;
};

struct NameBlock;

// Prepares display names, so that searches need not redo it per key stroke, storing them in
// blocks shared by the names in it: preparing a plain name then allocates nothing of its own. A
// batch announced large enough to fill huge pages is stored in them. One thread at a time; the
// names it made are read-only and may be read on any thread.
class NameBatch
{
public:
    // expectedCount: about how many names this batch will prepare. ids: where the ids of
    // characters of several code points come from (CharacterIds); without, a name holding one is
    // not prepared, and the search session prepares it with its own.
    explicit NameBatch(size_t expectedCount, CharacterIds *ids = nullptr);
    ~NameBatch();
    NameBatch(const NameBatch &) = delete;
    NameBatch &operator=(const NameBatch &) = delete;

    // collationKey is Collation::sortKey(displayName), which the scan has already computed for
    // its sort; when empty the search computes it if needed. Null when the name needs ids the
    // batch has none of.
    std::shared_ptr<const PreparedName> prepare(const QString &displayName,
                                                QByteArrayView collationKey);

private:
    std::shared_ptr<PreparedName> newName(size_t arrayBytes, std::byte *&arrays);

    size_t m_expectedCount;
    CharacterIds *m_ids;
    std::shared_ptr<NameBlock> m_block;
    TextDescriber m_describer;
};

// prepareQuery of MatchText.h, for a query held as a Qt string.
PreparedQuery prepareQuery(QStringView query, CharacterIds &ids);
// A QString converts to std::u16string_view too (Qt 6.7): this settles which one is meant.
inline PreparedQuery prepareQuery(const QString &query, CharacterIds &ids)
{
    return prepareQuery(QStringView(query), ids);
}

// Makes the next scan list the folder and build every record anew, as the first scan of a
// process does, instead of returning the last list or taking its unchanged records.
void forgetScannedRecords();

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

// The list a session searched last, with its dense index and the candidates of the last query.
// The list is kept referenced, so the same data pointer means the same, unchanged records: a
// list shared with this copy detaches before any change.
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
    void rebuild(const QList<IndexedFile> &list, NameBatch &names);
};

// Everything a search session reuses from one call to the next.
struct SearchState
{
    // Numbers the list's and the queries' characters of several code points; emptied with the
    // list index, which then prepares again the names that needed it.
    CharacterIds ids;
    NameBatch names{0, &ids};
    ListIndex list;
    KernelScratch scratch;
    std::vector<int32_t> trace;
};

} // namespace pindle::detail
