#include "core/AsciiSortKeys.h"

#include "core/Unicode.h"

#include <unicode/uniset.h>
#include <unicode/usetiter.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace pindle::Collation {
namespace {

// The bytes of ICU's sort keys, as its collation code writes them: i18n/collation.h
// (LEVEL_SEPARATOR_BYTE, MERGE_SEPARATOR_BYTE, COMMON_BYTE), i18n/collationkeys.cpp (the
// compression of common secondary weights: SEC_COMMON_LOW, SEC_COMMON_MIDDLE,
// SEC_COMMON_MAX_COUNT) and i18n/collationiterator.cpp (appendNumericSegmentCEs: the primary
// weights of a digit run under numeric ordering). Checked against ICU 72 (Debian 12) and ICU 76
// (Debian 13), where the tests run; learn() compares the table with the collator's own keys
// before it is used, so a change in a later ICU turns the table off rather than misorders.
//
// At secondary strength a key is the primary weights, a level separator, the secondary
// weights. Every ASCII character has the common secondary weight, and runs of it are written
// as a count: commonLow + n for up to commonMaxCount, commonMiddle per full run before.
constexpr uint8_t levelSeparator = 0x01;
// Primary weight bytes start above the separators.
constexpr uint8_t lowestPrimaryByte = 0x02;
constexpr uint8_t commonLow = 0x05;
constexpr uint8_t commonMiddle = commonLow + 0x20;
constexpr size_t commonMaxCount = 0x21;

// A number's primary: the digit lead byte, then bytes of 254 values from lowestPrimaryByte up.
// Values below 74 take one byte, the next 40 * 254 two (the first from 76), the next
// 16 * 254 * 254 three (the first from 116); larger numbers give their count of digit pairs
// from 128 on, then each pair p as 11 + 2p, the last one less by one.
constexpr uint32_t byteValues = 254;
constexpr uint32_t oneByteNumbers = 74;
constexpr uint32_t twoByteLeads = 40;
constexpr uint32_t threeByteLeads = 16;
constexpr uint32_t twoByteFirst = lowestPrimaryByte + oneByteNumbers;
constexpr uint32_t threeByteFirst = twoByteFirst + twoByteLeads;
constexpr uint32_t pairCountFirst = 128;
constexpr uint32_t pairFirst = 11;

// Digit runs longer than this are left to the collator, which splits them in segments.
constexpr size_t longestNumber = 200;

bool isDigit(char16_t c)
{
    return c >= u'0' && c <= u'9';
}

std::string collatorKey(const icu::Collator &collator, std::u16string_view text)
{
    const icu::UnicodeString string(false, text.data(), int32_t(text.size()));
    std::string key(64, '\0');
    int32_t size = collator.getSortKey(string, reinterpret_cast<uint8_t *>(key.data()), 64);
    if (size > 64) {
        key.resize(size_t(size));
        size = collator.getSortKey(string, reinterpret_cast<uint8_t *>(key.data()), size);
    }
    // Without the terminating zero byte, as the table writes it.
    key.resize(size_t(std::max(size - 1, 0)));
    return key;
}

// Whether the locale changes how any plain ASCII text sorts compared with the root order the
// table is checked against: a tailored ASCII character, or a tailored sequence of ASCII
// characters (a contraction such as Danish "aa"). The root order itself has no contraction of
// ASCII characters alone. The tailored set is small, where listing every contraction of the
// collator took milliseconds at the first scan.
bool tailorsAscii(const icu::Collator &collator)
{
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::UnicodeSet> tailored(collator.getTailoredSet(status));
    if (U_FAILURE(status) || !tailored)
        return true;
    if (tailored->containsSome(0, 0x7F))
        return true;
    for (icu::UnicodeSetIterator it(*tailored); it.next();) {
        if (!it.isString())
            continue;
        const icu::UnicodeString &text = it.getString();
        if (Unicode::isPlainAscii({text.getBuffer(), size_t(text.length())}))
            return true;
    }
    return false;
}

bool hasPlainLayout(const icu::Collator &collator)
{
    UErrorCode status = U_ZERO_ERROR;
    const auto is = [&](UColAttribute attribute, UColAttributeValue value) {
        return collator.getAttribute(attribute, status) == value;
    };
    return is(UCOL_STRENGTH, UCOL_SECONDARY) && is(UCOL_NUMERIC_COLLATION, UCOL_ON) &&
           is(UCOL_FRENCH_COLLATION, UCOL_OFF) && is(UCOL_CASE_LEVEL, UCOL_OFF) &&
           is(UCOL_ALTERNATE_HANDLING, UCOL_NON_IGNORABLE) && U_SUCCESS(status);
}

// Texts whose keys must come out the same both ways before the table is used: every
// character, the number encodings at the edges of their ranges, long common-weight runs.
std::vector<std::u16string> probes()
{
    std::vector<std::u16string> texts = {
        u"",
        u"Hello, World!",
        u"\t\x01z\x7F",
        u"x10y 007 0000 73 74 10233 10234 1042489 1042490",
        u"99999999 1000000000000 12345678901234 1.5-2_3",
        u"item 2 item 10 v1.2.10",
        std::u16string(33, u'a'),
        std::u16string(34, u'a'),
        std::u16string(67, u'A') + u"9",
        std::u16string(120, u'7'),
    };
    std::u16string every;
    for (char16_t c = 0; c < 0x80; ++c)
        if (c != u'\r')
            every += c;
    texts.push_back(every);
    return texts;
}

} // namespace

std::optional<AsciiSortKeys> AsciiSortKeys::learn(const icu::Collator &collator)
{
    if (!hasPlainLayout(collator) || tailorsAscii(collator))
        return std::nullopt;
    AsciiSortKeys table;
    // A lone digit: the digit lead byte, its value's byte, the separator, a common weight.
    const std::string commonTail{char(levelSeparator), char(commonLow)};
    const std::string zero = collatorKey(collator, u"0");
    const std::string one = collatorKey(collator, u"1");
    if (zero.size() != 4 || zero[1] != char(lowestPrimaryByte) || zero.substr(2) != commonTail ||
        one != std::string{zero[0], char(lowestPrimaryByte + 1)} + commonTail)
        return std::nullopt;
    table.m_digitLead = uint8_t(zero[0]);
    for (char16_t c = 0; c < 0x80; ++c) {
        if (isDigit(c))
            continue;
        const std::string key = collatorKey(collator, std::u16string_view(&c, 1));
        Weight &weight = table.m_weights[c];
        if (key == std::string(1, char(levelSeparator)))
            continue; // ignored
        // One element: its primary bytes, the separator, one common secondary weight.
        const size_t primaries = key.size() - 2;
        if (key.size() < 3 || primaries > weight.bytes.size() ||
            key.substr(primaries) != commonTail ||
            std::ranges::any_of(key.substr(0, primaries),
                                [](char b) { return uint8_t(b) < lowestPrimaryByte; }))
            return std::nullopt;
        weight.size = uint8_t(primaries);
        std::copy_n(key.begin(), primaries, weight.bytes.begin());
    }
    for (const std::u16string &text : probes()) {
        std::string key;
        if (!table.append(text, key) || key != collatorKey(collator, text))
            return std::nullopt;
    }
    return table;
}

bool AsciiSortKeys::append(std::u16string_view name, std::string &keys) const
{
    if (!Unicode::isPlainAscii(name))
        return false;
    // Written in place: no character takes more than four bytes, nor does any digit of a
    // number; the level separator and the secondary weights follow.
    const size_t start = keys.size();
    const size_t most = 4 * name.size() + name.size() / commonMaxCount + 2;
    bool isWritten = true;
    keys.resize_and_overwrite(start + most, [&](char *data, size_t) {
        char *out = data + start;
        size_t elements = 0;
        for (size_t at = 0; at < name.size();) {
            const char16_t c = name[at];
            if (isDigit(c)) {
                size_t end = at;
                while (end < name.size() && isDigit(name[end]))
                    ++end;
                if (end - at > longestNumber) {
                    isWritten = false;
                    return start;
                }
                appendNumber(name.substr(at, end - at), out, elements);
                at = end;
                continue;
            }
            const Weight &weight = m_weights[c];
            std::memcpy(out, weight.bytes.data(), weight.bytes.size());
            out += weight.size;
            elements += weight.size > 0 ? 1 : 0;
            ++at;
        }
        *out++ = char(levelSeparator);
        if (elements > 0) {
            size_t rest = elements - 1;
            for (; rest >= commonMaxCount; rest -= commonMaxCount)
                *out++ = char(commonMiddle);
            *out++ = char(commonLow + rest);
        }
        return size_t(out - data);
    });
    return isWritten;
}

// A run of digits as one number, the way the collator's numeric ordering writes it: leading
// zeros dropped; values below 1,042,490 in one element of two to four bytes, by range; larger
// ones as their count of digit pairs followed by the pairs, three to an element.
void AsciiSortKeys::appendNumber(std::u16string_view digits, char *&out, size_t &elements) const
{
    while (digits.size() > 1 && digits.front() == u'0')
        digits.remove_prefix(1);
    // One element: the digit lead byte, then up to three bytes.
    uint8_t element[4] = {m_digitLead};
    size_t used = 1;
    const auto finish = [&] {
        std::memcpy(out, element, used);
        out += used;
        ++elements;
        used = 1;
    };
    const auto add = [&](uint32_t b) { element[used++] = uint8_t(b); };
    if (digits.size() <= 7) {
        uint32_t value = 0;
        for (const char16_t d : digits)
            value = value * 10 + uint32_t(d - u'0');
        if (value < oneByteNumbers) {
            add(lowestPrimaryByte + value);
            return finish();
        }
        value -= oneByteNumbers;
        if (value < twoByteLeads * byteValues) {
            add(twoByteFirst + value / byteValues);
            add(lowestPrimaryByte + value % byteValues);
            return finish();
        }
        value -= twoByteLeads * byteValues;
        if (value < threeByteLeads * byteValues * byteValues) {
            add(threeByteFirst + value / (byteValues * byteValues));
            add(lowestPrimaryByte + value / byteValues % byteValues);
            add(lowestPrimaryByte + value % byteValues);
            return finish();
        }
    }
    add(uint32_t(pairCountFirst + (digits.size() + 1) / 2));
    // Trailing pairs of zeros are left out; the pair count keeps the magnitude.
    while (digits.size() >= 2 && digits.ends_with(u"00"))
        digits.remove_suffix(2);
    // Pairs are counted from the end: an odd count of digits begins with a single one.
    size_t at = 0;
    const auto nextPair = [&] {
        uint32_t value = uint32_t(digits[at++] - u'0');
        if (at > 1 || digits.size() % 2 == 0)
            value = value * 10 + uint32_t(digits[at++] - u'0');
        return pairFirst + 2 * value;
    };
    // Each pair is written once the next is known: the last is written one lower.
    for (uint32_t pair = nextPair();;) {
        const bool isLast = at == digits.size();
        if (used == 4)
            finish();
        add(isLast ? pair - 1 : pair);
        if (isLast)
            return finish();
        pair = nextPair();
    }
}

} // namespace pindle::Collation
