#include "core/AsciiSortKeys.h"

#include <gtest/gtest.h>

#include <unicode/coll.h>

#include <memory>
#include <random>
#include <string>
#include <string_view>

using pindle::Collation::AsciiSortKeys;

namespace {

std::unique_ptr<icu::Collator> collatorFor(const char *locale)
{
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(locale, status));
    collator->setStrength(icu::Collator::SECONDARY);
    collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    EXPECT_TRUE(U_SUCCESS(status)) << locale;
    return collator;
}

std::string collatorKey(const icu::Collator &collator, const std::u16string &text)
{
    const icu::UnicodeString string(false, text.data(), int32_t(text.size()));
    std::string key(size_t(collator.getSortKey(string, nullptr, 0)), '\0');
    collator.getSortKey(string, reinterpret_cast<uint8_t *>(key.data()), int32_t(key.size()));
    key.pop_back();
    return key;
}

// Names with the parts that make keys interesting: letters of both cases, the letters that
// locales like to tailor, punctuation, controls, and digit runs of every size class.
std::u16string randomName(std::mt19937 &random)
{
    static const std::u16string pieces[] = {
        u"a",     u"A",       u"aa",      u"ch",       u"CH",        u"I",
        u"i",     u"y",       u"dz",      u"cs",       u"ll",        u"v",
        u"w",     u"o",       u"z",       u" ",        u"-",         u"_",
        u".",     u",",       u"/",       u"~",        u"'",         u"\t",
        u"\x01",  u"\x7F",    u"(",       u"#",        u"0",         u"00",
        u"7",     u"12",      u"074",     u"2024",     u"10233",     u"10234",
        u"99999", u"1042489", u"1042490", u"12345678", u"100000000", u"31415926535897932384626"};
    std::u16string name;
    const auto count = int(random() % 12);
    for (int i = 0; i < count; ++i)
        name += pieces[random() % std::size(pieces)];
    return name;
}

} // namespace

// Wherever a table is used it writes the collator's own keys, byte for byte; where a locale
// tailors ASCII ("aa" is one letter in Danish, "I" no capital i in Turkish) it must be refused
// rather than write keys that sort differently.
TEST(AsciiSortKeys, WritesTheCollatorsKeysInEveryLocaleThatUsesIt)
{
    for (const char *locale :
         {"", "en_US", "de", "fr", "ja", "da", "tr", "cs", "lt", "hu", "es", "cy", "fr_CA", "sv"}) {
        const std::unique_ptr<icu::Collator> collator = collatorFor(locale);
        const std::optional<AsciiSortKeys> table = AsciiSortKeys::learn(*collator);
        const std::string_view name = locale;
        const bool isPlain = name.empty() || name == "en_US" || name == "de";
        if (isPlain || name == "da" || name == "tr") {
            EXPECT_EQ(table.has_value(), isPlain) << locale;
        }
        if (!table)
            continue;
        std::mt19937 random(42);
        for (int i = 0; i < 5000; ++i) {
            const std::u16string name = randomName(random);
            std::string key;
            ASSERT_TRUE(table->append(name, key));
            ASSERT_EQ(key, collatorKey(*collator, name))
                << locale << ": " << std::string(name.begin(), name.end());
        }
    }
}

// Text beyond ASCII, and digit runs too long for the table, are left to the collator.
TEST(AsciiSortKeys, LeavesOtherNamesToTheCollator)
{
    const std::optional<AsciiSortKeys> table = AsciiSortKeys::learn(*collatorFor(""));
    ASSERT_TRUE(table);
    std::string keys = "kept";
    EXPECT_FALSE(table->append(u"caf\u00E9", keys));
    EXPECT_FALSE(table->append(u"id " + std::u16string(300, u'9'), keys));
    EXPECT_EQ(keys, "kept");
}
