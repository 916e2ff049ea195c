// The benchmark's line filter against the matcher.

#include "LineFilter.h"
#include "core/FuzzyMatch.h"
#include "core/Unicode.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <string>
#include <utility>
#include <vector>

using namespace pindle;

namespace {

struct ScoredLine
{
    std::string line;
    double score;
    bool operator==(const ScoredLine &) const = default;
};

void PrintTo(const ScoredLine &scored, std::ostream *out)
{
    *out << '"' << scored.line << "\" " << scored.score;
}

std::vector<ScoredLine> scoreLines(const QString &query, std::string_view text)
{
    const filter::FilterQuery prepared = filter::filterQuery(query.toStdU16String());
    std::vector<ScoredLine> result;
    filter::LineScorer(prepared).scoreLines(text, [&result](std::string_view line, double score) {
        result.push_back({std::string(line), score});
    });
    return result;
}

// The same, one line at a time through the matcher.
std::vector<ScoredLine> matchLines(const QString &query, std::string_view text)
{
    std::vector<ScoredLine> result;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string line(text.substr(0, end));
        if (const auto match = FuzzyMatch::match(query, QString::fromStdString(line)))
            result.push_back({line, match->score});
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return result;
}

TEST(LineScoring, scoresEveryLineLikeTheMatcher)
{
    const std::string text = test::generatedLines(700, 5);
    const QStringList queries =
        u"n|nf|news|gh|git hub|k|kel|KELVIN|;|a;b|`|`q|x x|2024|\u00E9|caf\u00E9|\u0130s|"
        u"stra\u00DFe|\U0001F44D\U0001F3FD|\u6771|\u212A|\u037E|e\r"_qs.split(u'|');
    for (const QString &query : queries) {
        SCOPED_TRACE(query.toStdString());
        const std::vector<ScoredLine> expected = matchLines(query, text);
        ASSERT_FALSE(expected.empty());
        EXPECT_EQ(scoreLines(query, text), expected);
        // The last line without its line break, and text that ends inside a block.
        EXPECT_EQ(scoreLines(query, std::string_view(text).substr(0, text.size() - 1)), expected);
        const std::string_view odd = std::string_view(text).substr(0, 64 * 37 + 5);
        EXPECT_EQ(scoreLines(query, odd), matchLines(query, odd));
    }
    EXPECT_TRUE(scoreLines(u""_qs, "a\nb\n").empty());
    EXPECT_TRUE(scoreLines(u"a"_qs, "\n\n\n").empty());
}

// The filter looks for a query's ASCII characters in a line's bytes; a character beyond ASCII
// that matches one must be among the stand-ins, or lines holding it would be passed over.
TEST(LineScoring, knowsEveryCharacterThatLowercasesToAnAsciiOne)
{
    std::vector<std::pair<char, std::string>> found;
    for (UChar32 c = 0x80; c <= 0x10FFFF; ++c) {
        const auto type = UCharCategory(u_charType(c));
        if (type == U_UNASSIGNED || type == U_SURROGATE || type == U_PRIVATE_USE_CHAR)
            continue;
        char16_t units[2];
        int32_t unitCount = 0;
        U16_APPEND_UNSAFE(units, unitCount, c);
        const std::u16string form =
            Unicode::decomposed(Unicode::lowercased(std::u16string_view(units, size_t(unitCount))));
        if (form.size() == 1 && form[0] < 0x80) {
            char bytes[4];
            int32_t byteCount = 0;
            U8_APPEND_UNSAFE(bytes, byteCount, c);
            found.emplace_back(char(form[0]), std::string(bytes, size_t(byteCount)));
        }
    }
    std::vector<std::pair<char, std::string>> known;
    for (const filter::AsciiStandIn &standIn : filter::asciiStandIns)
        known.emplace_back(standIn.ascii, std::string(standIn.utf8));
    std::sort(found.begin(), found.end());
    std::sort(known.begin(), known.end());
    EXPECT_EQ(found, known);
}

} // namespace
