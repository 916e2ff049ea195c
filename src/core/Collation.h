#pragma once

#include <QByteArray>
#include <QString>

namespace pindle::Collation {

// Orders names the way a file browser lists them: by the user's collation locale, letter case
// and character width ignored, runs of digits by their numeric value. Negative, zero or positive.
int compare(const QString &a, const QString &b);

// A key whose byte-wise order (memcmp, shorter first on a common prefix) is compare()'s order.
QByteArray sortKey(const QString &name);

} // namespace pindle::Collation
