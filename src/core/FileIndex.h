#pragma once

#include <QList>
#include <QString>
#include <QUrl>

#include <memory>

namespace pindle {

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
QList<ScoredFile> search(const QString &query, const QList<IndexedFile> &files, qsizetype limit);
QList<ScoredFile> matching(const QString &url, const QList<IndexedFile> &files, qsizetype limit);

} // namespace FileIndex
} // namespace pindle
