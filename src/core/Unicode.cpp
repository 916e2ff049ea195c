#include "core/Unicode.h"

#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utext.h>

#include <memory>

namespace pindle::Unicode {
namespace {

const UChar *icuChars(QStringView text)
{
    return reinterpret_cast<const UChar *>(text.utf16());
}

// Creating a break iterator loads rule data, so each thread keeps one.
icu::BreakIterator *characterBreaks()
{
    thread_local const std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> made(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        return U_SUCCESS(status) ? std::move(made) : nullptr;
    }();
    return iterator.get();
}

const icu::Normalizer2 *nfd()
{
    static const icu::Normalizer2 *instance = [] {
        UErrorCode status = U_ZERO_ERROR;
        const icu::Normalizer2 *made = icu::Normalizer2::getNFDInstance(status);
        return U_SUCCESS(status) ? made : nullptr;
    }();
    return instance;
}

using CaseMapping = int32_t (*)(UChar *, int32_t, const UChar *, int32_t, const char *,
                                UErrorCode *);

QString mapped(QStringView text, CaseMapping map)
{
    if (text.isEmpty())
        return {};
    // Full mappings grow a text at most threefold; retry once with the exact size if not.
    QString result(text.size() + 8, Qt::Uninitialized);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = map(reinterpret_cast<UChar *>(result.data()), int32_t(result.size()),
                         icuChars(text), int32_t(text.size()), "", &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        result.resize(length);
        status = U_ZERO_ERROR;
        length = map(reinterpret_cast<UChar *>(result.data()), int32_t(result.size()),
                     icuChars(text), int32_t(text.size()), "", &status);
    }
    if (U_FAILURE(status))
        return text.toString();
    result.resize(length);
    return result;
}

bool isSingleScalar(QStringView character, UChar32 &scalar)
{
    if (character.isEmpty())
        return false;
    const char16_t first = character[0].unicode();
    if (QChar::isHighSurrogate(first) && character.size() >= 2 &&
        QChar::isLowSurrogate(character[1].unicode())) {
        scalar = UChar32(QChar::surrogateToUcs4(first, character[1].unicode()));
        return character.size() == 2;
    }
    scalar = first;
    return character.size() == 1;
}

} // namespace

std::vector<qsizetype> clusterBoundaries(QStringView text)
{
    std::vector<qsizetype> boundaries;
    boundaries.reserve(size_t(text.size()) + 1);
    boundaries.push_back(0);
    if (text.isEmpty())
        return boundaries;
    icu::BreakIterator *breaks = characterBreaks();
    if (breaks == nullptr) {
        // Without ICU data every code unit stands alone; never reached on a working install.
        for (qsizetype i = 1; i <= text.size(); ++i)
            boundaries.push_back(i);
        return boundaries;
    }
    // Between two ASCII characters, the first not CR, there is always a boundary, and no rule
    // looks across it (every rule with a longer context needs non-ASCII characters on both
    // sides). So the text is cut there, and only stretches longer than one character, which
    // hold something beyond ASCII or a CR, are given to the break iterator.
    const char16_t *units = reinterpret_cast<const char16_t *>(text.utf16());
    const qsizetype size = text.size();
    qsizetype spanStart = 0;
    for (qsizetype at = 1; at <= size; ++at) {
        if (at < size && !(units[at - 1] < 0x80 && units[at - 1] != u'\r' && units[at] < 0x80))
            continue;
        if (at - spanStart == 1) {
            boundaries.push_back(at);
        } else {
            UErrorCode status = U_ZERO_ERROR;
            UText wrapped = UTEXT_INITIALIZER;
            utext_openUChars(&wrapped, icuChars(text.sliced(spanStart, at - spanStart)),
                             at - spanStart, &status);
            breaks->setText(&wrapped, status);
            if (U_FAILURE(status)) {
                for (qsizetype i = spanStart + 1; i <= at; ++i)
                    boundaries.push_back(i);
            } else {
                for (int32_t next = breaks->next(); next != icu::BreakIterator::DONE;
                     next = breaks->next())
                    boundaries.push_back(spanStart + next);
            }
            utext_close(&wrapped);
        }
        spanStart = at;
    }
    return boundaries;
}

QString lowercased(QStringView text)
{
    return mapped(text, u_strToLower);
}

QString uppercased(QStringView text)
{
    return mapped(text, u_strToUpper);
}

QString decomposed(QStringView text)
{
    const icu::Normalizer2 *normalizer = nfd();
    if (normalizer == nullptr)
        return text.toString();
    const icu::UnicodeString source(false, icuChars(text), int32_t(text.size()));
    UErrorCode status = U_ZERO_ERROR;
    if (normalizer->isNormalized(source, status) && U_SUCCESS(status))
        return text.toString();
    status = U_ZERO_ERROR;
    const icu::UnicodeString result = normalizer->normalize(source, status);
    if (U_FAILURE(status))
        return text.toString();
    return QString(reinterpret_cast<const QChar *>(result.getBuffer()), result.length());
}

bool canonicallyEqual(QStringView a, QStringView b)
{
    if (a == b)
        return true;
    return decomposed(a) == decomposed(b);
}

bool isLowercase(QStringView character)
{
    UChar32 scalar = 0;
    const bool single = isSingleScalar(character, scalar);
    if (single && u_hasBinaryProperty(scalar, UCHAR_LOWERCASE))
        return true;
    if (!canonicallyEqual(lowercased(character), character))
        return false;
    return (single && u_hasBinaryProperty(scalar, UCHAR_CASED)) ||
           !canonicallyEqual(uppercased(character), character);
}

bool isUppercase(QStringView character)
{
    UChar32 scalar = 0;
    const bool single = isSingleScalar(character, scalar);
    if (single && u_hasBinaryProperty(scalar, UCHAR_UPPERCASE))
        return true;
    if (!canonicallyEqual(uppercased(character), character))
        return false;
    return (single && u_hasBinaryProperty(scalar, UCHAR_CASED)) ||
           !canonicallyEqual(lowercased(character), character);
}

bool isLetter(QStringView character)
{
    UChar32 scalar = 0;
    isSingleScalar(character, scalar);
    return !character.isEmpty() && u_hasBinaryProperty(scalar, UCHAR_ALPHABETIC);
}

} // namespace pindle::Unicode
