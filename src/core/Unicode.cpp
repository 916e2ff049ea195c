#include "core/Unicode.h"

#include <unicode/ubrk.h>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <memory>

namespace pindle::Unicode {
namespace {

const UChar *icuChars(std::u16string_view text)
{
    return text.data();
}

// ICU keeps the normalizers themselves, once made, for the life of the process.
const UNormalizer2 *nfd()
{
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2 *made = unorm2_getNFDInstance(&status);
    return U_SUCCESS(status) ? made : nullptr;
}

const UNormalizer2 *nfc()
{
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2 *made = unorm2_getNFCInstance(&status);
    return U_SUCCESS(status) ? made : nullptr;
}

using CaseMapping = int32_t (*)(UChar *, int32_t, const UChar *, int32_t, const char *,
                                UErrorCode *);

void mapped(std::u16string_view text, CaseMapping map, std::u16string &result)
{
    result.clear();
    if (text.empty())
        return;
    // Full mappings grow a text at most threefold; retry once with the exact size if not.
    result.resize(text.size() + 8);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = map(result.data(), int32_t(result.size()), icuChars(text),
                         int32_t(text.size()), "", &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        result.resize(size_t(length));
        status = U_ZERO_ERROR;
        length = map(result.data(), int32_t(result.size()), icuChars(text), int32_t(text.size()),
                     "", &status);
    }
    if (U_FAILURE(status))
        result.assign(text);
    else
        result.resize(size_t(length));
}

std::u16string mapped(std::u16string_view text, CaseMapping map)
{
    std::u16string result;
    mapped(text, map, result);
    return result;
}

bool isSingleScalar(std::u16string_view character, UChar32 &scalar)
{
    if (character.empty())
        return false;
    const char16_t first = character[0];
    if (U16_IS_LEAD(first) && character.size() >= 2 && U16_IS_TRAIL(character[1])) {
        scalar = U16_GET_SUPPLEMENTARY(first, character[1]);
        return character.size() == 2;
    }
    scalar = first;
    return character.size() == 1;
}

} // namespace

namespace {

// The code point that ends just before `at`, and the one that starts there.
UChar32 codePointBefore(std::u16string_view text, size_t at)
{
    UChar32 c = 0;
    U16_PREV(text.data(), 0, at, c);
    return c;
}

UChar32 codePointAt(std::u16string_view text, size_t at)
{
    UChar32 c = 0;
    U16_NEXT(text.data(), at, text.size(), c);
    return c;
}

// Whether every rule leaves a boundary between two characters of the text: two ASCII
// characters, the first not CR, or two of no grapheme cluster break property at all (most
// letters, digits and signs, precomposed or not), where only the last rule speaks. No rule
// looks across such a place, so the text can be cut there.
bool isPlainBoundary(std::u16string_view text, size_t at)
{
    const char16_t before = text[at - 1];
    const char16_t after = text[at];
    if (before < 0x80 && after < 0x80)
        return before != u'\r';
    if (U16_IS_LEAD(before) || U16_IS_TRAIL(after))
        return false; // inside a surrogate pair
    const auto gcb = [](UChar32 c) {
        return u_getIntPropertyValue(c, UCHAR_GRAPHEME_CLUSTER_BREAK);
    };
    return gcb(codePointBefore(text, at)) == U_GCB_OTHER &&
           gcb(codePointAt(text, at)) == U_GCB_OTHER;
}

} // namespace

struct ClusterBreaker::Iterator
{
    UBreakIterator *breaks = nullptr;
    bool isOpened = false;

    ~Iterator() { ubrk_close(breaks); }

    // Null when ICU has no break rules; never so on a working install.
    UBreakIterator *get()
    {
        if (!isOpened) {
            isOpened = true;
            UErrorCode status = U_ZERO_ERROR;
            breaks = ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status);
            if (U_FAILURE(status)) {
                ubrk_close(breaks);
                breaks = nullptr;
            }
        }
        return breaks;
    }
};

ClusterBreaker::ClusterBreaker() : m_iterator(std::make_unique<Iterator>()) {}

ClusterBreaker::~ClusterBreaker() = default;

void ClusterBreaker::boundaries(std::u16string_view text, std::vector<int32_t> &boundaries)
{
    boundaries.clear();
    boundaries.reserve(text.size() + 1);
    boundaries.push_back(0);
    if (text.empty())
        return;
    const auto size = int32_t(text.size());
    // The text is cut at every plain boundary, and only the stretches between them longer than
    // one code unit are given to the break iterator.
    int32_t spanStart = 0;
    for (int32_t at = 1; at <= size; ++at) {
        if (at < size && !isPlainBoundary(text, size_t(at)))
            continue;
        if (at - spanStart == 1) {
            boundaries.push_back(at);
        } else {
            UBreakIterator *breaks = m_iterator->get();
            UErrorCode status = U_ZERO_ERROR;
            if (breaks != nullptr)
                ubrk_setText(breaks, text.data() + spanStart, at - spanStart, &status);
            // Without ICU's rules every code unit stands alone.
            if (breaks == nullptr || U_FAILURE(status)) {
                for (int32_t i = spanStart + 1; i <= at; ++i)
                    boundaries.push_back(i);
            } else {
                for (int32_t next = ubrk_next(breaks); next != UBRK_DONE; next = ubrk_next(breaks))
                    boundaries.push_back(spanStart + next);
            }
        }
        spanStart = at;
    }
}

std::vector<int32_t> clusterBoundaries(std::u16string_view text)
{
    std::vector<int32_t> boundaries;
    ClusterBreaker().boundaries(text, boundaries);
    return boundaries;
}

// A reduction without an early exit, which the compiler turns into vector code: names are
// short, and most are plain.
bool isPlainAscii(std::u16string_view text)
{
    unsigned isOther = 0;
    for (const char16_t c : text)
        isOther |= unsigned(c >= 0x80) | unsigned(c == u'\r');
    return isOther == 0;
}

std::u16string lowercased(std::u16string_view text)
{
    return mapped(text, u_strToLower);
}

void lowercased(std::u16string_view text, std::u16string &result)
{
    mapped(text, u_strToLower, result);
}

namespace {

std::u16string normalized(const UNormalizer2 *normalizer, std::u16string_view text)
{
    if (normalizer == nullptr)
        return std::u16string(text);
    UErrorCode status = U_ZERO_ERROR;
    if (unorm2_isNormalized(normalizer, icuChars(text), int32_t(text.size()), &status) &&
        U_SUCCESS(status))
        return std::u16string(text);
    // A normalized text is rarely more than three times as long; retry once with the exact size
    // if it is.
    std::u16string result(3 * text.size() + 8, u'\0');
    status = U_ZERO_ERROR;
    int32_t length = unorm2_normalize(normalizer, icuChars(text), int32_t(text.size()),
                                      result.data(), int32_t(result.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        result.resize(size_t(length));
        status = U_ZERO_ERROR;
        length = unorm2_normalize(normalizer, icuChars(text), int32_t(text.size()), result.data(),
                                  int32_t(result.size()), &status);
    }
    if (U_FAILURE(status))
        return std::u16string(text);
    result.resize(size_t(length));
    return result;
}

} // namespace

std::u16string decomposed(std::u16string_view text)
{
    return normalized(nfd(), text);
}

std::u16string composed(std::u16string_view text)
{
    return normalized(nfc(), text);
}

bool canonicallyEqual(std::u16string_view a, std::u16string_view b)
{
    if (a == b)
        return true;
    return decomposed(a) == decomposed(b);
}

namespace {

// Whether a character is of the case `property` names: it has the property, or it is its own
// `toCase` mapping (up to canonical equivalence) and either is cased or changes under `away`.
bool hasCase(std::u16string_view character, UProperty property, CaseMapping toCase,
             CaseMapping away)
{
    UChar32 scalar = 0;
    const bool single = isSingleScalar(character, scalar);
    if (single && u_hasBinaryProperty(scalar, property))
        return true;
    if (!canonicallyEqual(mapped(character, toCase), character))
        return false;
    return (single && u_hasBinaryProperty(scalar, UCHAR_CASED)) ||
           !canonicallyEqual(mapped(character, away), character);
}

} // namespace

bool isLowercase(std::u16string_view character)
{
    return hasCase(character, UCHAR_LOWERCASE, u_strToLower, u_strToUpper);
}

bool isUppercase(std::u16string_view character)
{
    return hasCase(character, UCHAR_UPPERCASE, u_strToUpper, u_strToLower);
}

bool isLetter(std::u16string_view character)
{
    UChar32 scalar = 0;
    isSingleScalar(character, scalar);
    return !character.empty() && u_hasBinaryProperty(scalar, UCHAR_ALPHABETIC);
}

std::u16string fromUtf8(std::string_view bytes)
{
    // Never more UTF-16 units than bytes.
    std::u16string result(bytes.size(), u'\0');
    size_t at = 0;
    while (at < bytes.size() && static_cast<unsigned char>(bytes[at]) < 0x80) {
        result[at] = char16_t(bytes[at]);
        ++at;
    }
    if (at == bytes.size())
        return result;
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(result.data() + at, int32_t(result.size() - at), &length,
                         bytes.data() + at, int32_t(bytes.size() - at), 0xFFFD, nullptr, &status);
    result.resize(U_SUCCESS(status) ? at + size_t(length) : at);
    return result;
}

} // namespace pindle::Unicode
