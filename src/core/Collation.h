#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <string>

namespace pindle::Collation {

// Orders names the way a file browser lists them: by the user's collation locale, letter case
// and character width ignored, runs of digits by their numeric value. Negative, zero or positive.
int compare(const QString &a, const QString &b);

// A key whose byte-wise order (memcmp, shorter first on a common prefix) is compare()'s order.
QByteArray sortKey(const QString &name);
// sortKey(name) appended to keys, which is grown as needed; returns the key's size.
size_t appendSortKey(const QString &name, std::string &keys);

} // namespace pindle::Collation
