#include "core/AsciiSortKeys.h"

#include <gtest/gtest.h>

#include <unicode/coll.h>

#include <memory>
#include <random>
#include <string>
#include <string_view>

using pindle::Collation::AsciiSortKeys;

// Wherever a table is used it writes the collator's own keys, byte for byte, for names with the
// parts that make keys interesting: letters of both cases, the letters that locales like to
// tailor, punctuation, controls, and digit runs of every size class. Where a locale tailors
// ASCII ("aa" is one letter in Danish, "I" no capital i in Turkish) the table must be refused
// rather than write keys that sort differently; text beyond ASCII, and digit runs too long for
// it, are left to the collator.
TEST(AsciiSortKeys, WritesTheCollatorsKeysInEveryLocaleThatUsesIt)
{
    const std::u16string pieces[] = {
        u"a",     u"A",       u"aa",      u"ch",       u"CH",        u"I",
        u"i",     u"y",       u"dz",      u"cs",       u"ll",        u"v",
        u"w",     u"o",       u"z",       u" ",        u"-",         u"_",
        u".",     u",",       u"/",       u"~",        u"'",         u"\t",
        u"\x01",  u"\x7F",    u"(",       u"#",        u"0",         u"00",
        u"7",     u"12",      u"074",     u"2024",     u"10233",     u"10234",
        u"99999", u"1042489", u"1042490", u"12345678", u"100000000", u"31415926535897932384626"};
    for (const std::string_view locale :
         {"", "en_US", "de", "fr", "ja", "da", "tr", "cs", "lt", "hu", "es", "cy", "fr_CA", "sv"}) {
        UErrorCode status = U_ZERO_ERROR;
        const std::unique_ptr<icu::Collator> collator(
            icu::Collator::createInstance(locale.data(), status));
        collator->setStrength(icu::Collator::SECONDARY);
        collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
        ASSERT_TRUE(U_SUCCESS(status)) << locale;
        const std::optional<AsciiSortKeys> table = AsciiSortKeys::learn(*collator);
        const bool isPlain = locale.empty() || locale == "en_US" || locale == "de";
        if (isPlain || locale == "da" || locale == "tr") {
            EXPECT_EQ(table.has_value(), isPlain) << locale;
        }
        if (!table)
            continue;
        std::string keys = "kept";
        EXPECT_FALSE(table->append(u"caf\u00E9", keys));
        EXPECT_FALSE(table->append(u"id " + std::u16string(300, u'9'), keys));
        EXPECT_EQ(keys, "kept");
        std::mt19937 random(42);
        for (int i = 0; i < 5000; ++i) {
            std::u16string name;
            for (auto count = random() % 12; count > 0; --count)
                name += pieces[random() % std::size(pieces)];
            const icu::UnicodeString text(false, name.data(), int32_t(name.size()));
            std::string key(size_t(collator->getSortKey(text, nullptr, 0)), '\0');
            collator->getSortKey(text, reinterpret_cast<uint8_t *>(key.data()),
                                 int32_t(key.size()));
            key.pop_back();
            keys.clear();
            ASSERT_TRUE(table->append(name, keys));
            ASSERT_EQ(keys, key) << locale << ": " << std::string(name.begin(), name.end());
        }
    }
}
