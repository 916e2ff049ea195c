#pragma once

#include <QString>
#include <QStringView>

#include <vector>

// Unicode services the matcher and the search share, all backed by ICU so that they follow the
// Unicode definitions exactly (Qt's own helpers use general categories where the properties
// differ, and lag ICU's Unicode version).
namespace pindle::Unicode {

// Where the extended grapheme clusters of text begin, in UTF-16 units, followed by text.size().
// An empty text gives {0}.
std::vector<qsizetype> clusterBoundaries(QStringView text);

// Full case mappings of the whole text with the root locale: no language-specific rules, but
// context-sensitive ones (final sigma) and expansions (ß to SS) apply.
QString lowercased(QStringView text);
QString uppercased(QStringView text);

// Canonical decomposition (NFD): canonically equivalent texts have identical decompositions.
QString decomposed(QStringView text);
bool canonicallyEqual(QStringView a, QStringView b);

// The character tests of the matcher, for one user-perceived character (one grapheme cluster).
bool isLowercase(QStringView character);
bool isUppercase(QStringView character);
bool isLetter(QStringView character);

} // namespace pindle::Unicode
