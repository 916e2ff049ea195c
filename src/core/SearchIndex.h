#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

namespace pindle::detail {

struct PreparedName;

// Analyses a display name once, so that searches need not redo it per key stroke. collationKey
// is Collation::sortKey(displayName), which the scan has already computed for its sort. May
// return null; the search then works from the name itself.
std::shared_ptr<const PreparedName> prepareName(const QString &displayName, QByteArray collationKey);

} // namespace pindle::detail
