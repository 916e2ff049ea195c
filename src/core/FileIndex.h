#pragma once

#include <QList>
#include <QString>
#include <QUrl>

#include <atomic>
#include <memory>

namespace pindle {

class SearchSession;

namespace detail {
struct PreparedName;
}

// One file found in the shortcut folder.
struct IndexedFile
{
    QUrl url;
    QString displayName;
    // Search data derived from displayName when the scan made the record. Records made
    // elsewhere leave it empty and the search derives what it needs itself.
    std::shared_ptr<const detail::PreparedName> prepared = {};
};

// One row of a result list.
struct ScoredFile
{
    IndexedFile file;
    double score = 0;
    QList<qsizetype> positions;
};

namespace FileIndex {

// $HOME/conflocal/urls, computed once.
const QUrl &directory();
bool directoryExists();
// The folder's regular, non-hidden files in the file browser's order; empty when it can't be read.
QList<IndexedFile> scan();

// scan() in three steps, for callers that list a large folder beside the interface: startScan()
// and finishScan() on the main thread, listFolder() between them on any thread.
struct FolderListing
{
    QList<IndexedFile> files;
    // False when the folder could not be read.
    bool isListed = false;
    bool isSettled = false;
    quint64 generation = 0;
};
// Takes the changes the folder watch saw and forgets what they touched. True when the last list
// still holds: it is in listing.files, and the scan is done.
bool startScan(FolderListing &listing);
// Lists and sorts the folder, unless isCancelled (if given) turns true meanwhile.
void listFolder(FolderListing &listing, const std::atomic<bool> *isCancelled);
// Keeps the listing for the next scan to compare with, and gives its files.
QList<IndexedFile> finishScan(FolderListing &&listing);
// Whether the folder takes more than mostBytes on disk: listing it would be felt.
bool isLarge(qint64 mostBytes);
// The files whose names match the query best, at most limit of them, best first; names of equal
// score in the file browser's order. Leading and trailing spaces and tabs of the query are
// ignored. A session (SearchSession.h) makes a key stroke's search cheaper, not different.
QList<ScoredFile> search(const QString &query, const QList<IndexedFile> &files, qsizetype limit);
QList<ScoredFile> search(const QString &query, const QList<IndexedFile> &files, qsizetype limit,
                         SearchSession &session);
// The files whose target is the address (trimmed), up to canonical equivalence, in list order.
QList<ScoredFile> matching(const QString &url, const QList<IndexedFile> &files, qsizetype limit);

} // namespace FileIndex
} // namespace pindle
