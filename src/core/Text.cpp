#include "core/Text.h"

#include <QChar>

namespace pindle::Text {
namespace {

template <typename Predicate>
QStringView trimmed(QStringView text, Predicate isTrimmed)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isTrimmed(text[begin].unicode()))
        ++begin;
    while (end > begin && isTrimmed(text[end - 1].unicode()))
        --end;
    return text.sliced(begin, end - begin);
}

} // namespace

bool isWhitespace(char16_t c)
{
    // Every Zs character is in the Basic Multilingual Plane, so one UTF-16 unit decides.
    return c == u'\t' || QChar::category(char32_t(c)) == QChar::Separator_Space;
}

bool isNewline(char16_t c)
{
    return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

bool isWhitespaceOrNewline(char16_t c)
{
    return isWhitespace(c) || isNewline(c);
}

QStringView withoutWhitespace(QStringView text)
{
    return trimmed(text, isWhitespace);
}

QString trimmedWhitespace(QStringView text)
{
    return trimmed(text, isWhitespace).toString();
}

QString trimmedWhitespaceAndNewlines(QStringView text)
{
    return trimmed(text, isWhitespaceOrNewline).toString();
}

} // namespace pindle::Text
