#pragma once

#include <QString>
#include <QStringView>

namespace pindle::Text {

// Tab and the Unicode space separators (category Zs).
bool isWhitespace(char16_t c);
// U+000A–U+000D, U+0085, U+2028 and U+2029.
bool isNewline(char16_t c);
// isWhitespace or isNewline.
bool isWhitespaceOrNewline(char16_t c);

// Both ends trimmed of isWhitespace characters; line breaks stay.
QStringView withoutWhitespace(QStringView text);
QString trimmedWhitespace(QStringView text);
// Both ends trimmed of isWhitespaceOrNewline characters.
QString trimmedWhitespaceAndNewlines(QStringView text);

} // namespace pindle::Text
