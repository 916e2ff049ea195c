#pragma once

#include "core/FileIndex.h"
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

// Announces, for as long as it lives, that this thread is about to prepare `count` names: a
// large batch is then stored in huge pages.
class NameBatch
{
public:
    explicit NameBatch(size_t count);
    ~NameBatch();
    NameBatch(const NameBatch &) = delete;
    NameBatch &operator=(const NameBatch &) = delete;

private:
    size_t m_previous;
};

// Analyses a display name once, so that searches need not redo it per key stroke. collationKey
// is Collation::sortKey(displayName), which the scan has already computed for its sort. May
// return null; the search then works from the name itself.
std::shared_ptr<const PreparedName> prepareName(const QString &displayName,
                                                QByteArrayView collationKey);

// prepareQuery of MatchText.h, for a query held as a Qt string.
PreparedQuery prepareQuery(QStringView query);
// A QString converts to std::u16string_view too (Qt 6.7): this settles which one is meant.
inline PreparedQuery prepareQuery(const QString &query)
{
    return prepareQuery(QStringView(query));
}

// Drops this thread's search cache, and with it the reference that keeps the list searched
// last alive: a new scan is about to replace that list.
void forgetSearchedList();

// Reads the targets of the files not yet in ShortcutURL's cache, on two threads, into the cache.
void cacheTargets(const QList<IndexedFile> &files);

// Makes the next scan list the folder and build every record anew, as the first scan of a
// process does, instead of returning the last list or taking its unchanged records.
void forgetScannedRecords();

} // namespace pindle::detail
