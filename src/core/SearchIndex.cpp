#include "core/SearchIndex.h"
#include "core/FileIndex.h"

// Placeholder until the search is written.
namespace pindle::detail {

std::shared_ptr<const PreparedName> prepareName(const QString &, QByteArray)
{
    return nullptr;
}

} // namespace pindle::detail

namespace pindle::FileIndex {

QList<ScoredFile> search(const QString &, const QList<IndexedFile> &, qsizetype)
{
    return {};
}

QList<ScoredFile> matching(const QString &, const QList<IndexedFile> &, qsizetype)
{
    return {};
}

} // namespace pindle::FileIndex
