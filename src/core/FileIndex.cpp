#include "core/FileIndex.h"

// Placeholder until the scan is written.
namespace pindle::FileIndex {

const QUrl &directory()
{
    static const QUrl url;
    return url;
}

bool directoryExists()
{
    return false;
}

QList<IndexedFile> scan()
{
    return {};
}

} // namespace pindle::FileIndex
