#include "core/UnicodeQt.h"

namespace pindle::Unicode {

std::vector<qsizetype> clusterBoundaries(QStringView text)
{
    const std::vector<int32_t> boundaries = clusterBoundaries(units(text));
    return {boundaries.begin(), boundaries.end()};
}

QString lowercased(QStringView text)
{
    return toQString(lowercased(units(text)));
}

QString decomposed(QStringView text)
{
    return toQString(decomposed(units(text)));
}

bool canonicallyEqual(QStringView a, QStringView b)
{
    return canonicallyEqual(units(a), units(b));
}

bool isLowercase(QStringView character)
{
    return isLowercase(units(character));
}

bool isUppercase(QStringView character)
{
    return isUppercase(units(character));
}

bool isLetter(QStringView character)
{
    return isLetter(units(character));
}

} // namespace pindle::Unicode
