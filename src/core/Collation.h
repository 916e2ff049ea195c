#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <string>

namespace pindle::Collation {

// A key whose byte-wise order (memcmp, shorter first on a common prefix) is the order a file
// browser lists names in: by the user's collation locale, letter case and character width
// ignored, runs of digits by their numeric value.
QByteArray sortKey(const QString &name);
// sortKey(name) appended to keys, which is grown as needed; returns the key's size.
size_t appendSortKey(const QString &name, std::string &keys);

} // namespace pindle::Collation
