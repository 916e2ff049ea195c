#pragma once

#include <QString>

namespace pindle::test {

// The file browser's order of two names, straight from ICU's collator (the user's collation
// locale, secondary strength, digits by value): negative, zero or positive. The reference the
// search's sort keys are checked against.
int compareNames(const QString &a, const QString &b);

} // namespace pindle::test
