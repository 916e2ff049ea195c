#pragma once

#include "core/Unicode.h"

#include <QString>
#include <QStringView>

#include <string_view>
#include <vector>

// Unicode.h on Qt strings, for the parts of the core that hold their texts as QString.
namespace pindle::Unicode {

inline std::u16string_view units(QStringView text)
{
    return {text.utf16(), size_t(text.size())};
}

inline QString toQString(std::u16string_view text)
{
    return QString(reinterpret_cast<const QChar *>(text.data()), qsizetype(text.size()));
}

std::vector<qsizetype> clusterBoundaries(QStringView text);
QString lowercased(QStringView text);
QString decomposed(QStringView text);
bool canonicallyEqual(QStringView a, QStringView b);
bool isLowercase(QStringView character);
bool isUppercase(QStringView character);
bool isLetter(QStringView character);

// Since Qt 6.7 a QString converts to std::u16string_view as well as to QStringView, so a call
// with a QString would be ambiguous between the functions above and those of Unicode.h.
inline std::vector<qsizetype> clusterBoundaries(const QString &text)
{
    return clusterBoundaries(QStringView(text));
}
inline QString lowercased(const QString &text)
{
    return lowercased(QStringView(text));
}
inline QString decomposed(const QString &text)
{
    return decomposed(QStringView(text));
}
inline bool canonicallyEqual(const QString &a, const QString &b)
{
    return canonicallyEqual(QStringView(a), QStringView(b));
}
inline bool isLowercase(const QString &character)
{
    return isLowercase(QStringView(character));
}
inline bool isUppercase(const QString &character)
{
    return isUppercase(QStringView(character));
}
inline bool isLetter(const QString &character)
{
    return isLetter(QStringView(character));
}

} // namespace pindle::Unicode
