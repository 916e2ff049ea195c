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
QString uppercased(QStringView text);
QString decomposed(QStringView text);
bool canonicallyEqual(QStringView a, QStringView b);
bool isLowercase(QStringView character);
bool isUppercase(QStringView character);
bool isLetter(QStringView character);

} // namespace pindle::Unicode
