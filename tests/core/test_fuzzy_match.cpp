// Worked examples of the score, each written as the sum the rule makes of it; then the matcher
// against a slow model that tries every alignment, built from ICU alone and scoring each as the
// sum of the rule, on random short strings that stress the Unicode rules.

#include "core/FuzzyMatch.h"
#include "core/MatchScores.h"
#include "core/UnicodeQt.h"

#include <gtest/gtest.h>
#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>

#include <optional>
#include <random>
#include <vector>

using namespace pindle;
using namespace Qt::StringLiterals;

namespace {

icu::UnicodeString icuText(const QString &text)
{
    return {false, reinterpret_cast<const char16_t *>(text.utf16()), int32_t(text.size())};
}

// Extended grapheme clusters, as ICU's iterator finds them over the whole text.
std::vector<QString> characters(const icu::UnicodeString &text)
{
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::BreakIterator> breaks(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    breaks->setText(text);
    std::vector<QString> result;
    for (int32_t from = 0, to = breaks->next(); to != icu::BreakIterator::DONE;
         from = to, to = breaks->next())
        result.push_back(QString::fromUtf16(text.getBuffer() + from, to - from));
    return result;
}

// Lowercased and decomposed, character by character.
std::vector<QString> comparable(const QString &text)
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2 *nfd = icu::Normalizer2::getNFDInstance(status);
    std::vector<QString> result;
    for (const QString &c : characters(icuText(text).toLower(icu::Locale::getRoot()))) {
        const icu::UnicodeString decomposed = nfd->normalize(icuText(c), status);
        result.push_back(QString::fromUtf16(decomposed.getBuffer(), decomposed.length()));
    }
    return result;
}

// The model: the score of every allowed alignment written out from its definition.
struct Model
{
    std::vector<QString> query, lowered;
    std::vector<double> bonus;
    std::vector<bool> isStart, isLetter;

    Model(const QString &q, const QString &candidate)
        : query(comparable(q)), lowered(comparable(candidate))
    {
        const std::vector<QString> original = characters(icuText(candidate));
        for (size_t j = 0; j < original.size(); ++j) {
            double base = 0;
            if (j == 0)
                base = MatchScores::startBonus;
            else if (original[j - 1].size() == 1 &&
                     u" -_./\\:,()[]{}@+&'\"#~"_s.contains(original[j - 1]))
                base = MatchScores::afterSeparatorBonus;
            else if (Unicode::isLowercase(original[j - 1]) && Unicode::isUppercase(original[j]))
                base = MatchScores::camelHumpBonus;
            bonus.push_back(base + MatchScores::positionBonus);
            isStart.push_back(base > 0);
            isLetter.push_back(Unicode::isLetter(original[j]));
        }
    }

    size_t n() const { return bonus.size(); }

    // The total of an alignment, or nothing when it is not allowed.
    std::optional<double> total(const std::vector<qsizetype> &p) const
    {
        if (p.size() != query.size() || lowered.size() < n())
            return std::nullopt;
        double sum = 0;
        for (size_t i = 0; i < p.size(); ++i) {
            if (p[i] < 0 || size_t(p[i]) >= n() || lowered[size_t(p[i])] != query[i] ||
                (i > 0 && p[i] <= p[i - 1]))
                return std::nullopt;
            sum += bonus[size_t(p[i])];
            const qsizetype from = i == 0 ? 0 : p[i - 1] + 1;
            if (i > 0 && p[i] == from)
                sum += MatchScores::consecutiveBonus;
            sum -= MatchScores::gapPenalty * double(p[i] - from);
            for (qsizetype k = from; i > 0 && !isStart[size_t(p[i])] && k < p[i]; ++k)
                if (isLetter[size_t(k)])
                    return std::nullopt;
        }
        return sum;
    }

    // The best total, and the leftmost last position among alignments that reach it.
    std::optional<std::pair<double, qsizetype>> best() const
    {
        std::optional<std::pair<double, qsizetype>> found;
        for (unsigned mask = 0; !query.empty() && mask < 1u << n(); ++mask) {
            std::vector<qsizetype> p;
            for (size_t j = 0; j < n(); ++j)
                if (mask & (1u << j))
                    p.push_back(qsizetype(j));
            const std::optional<double> t = total(p);
            if (t &&
                (!found || *t > found->first || (*t == found->first && p.back() < found->second)))
                found = {*t, p.back()};
        }
        return found;
    }
};

// Letters of both cases, digits, separators, accents both ways, case mappings that change length,
// titlecase, final sigma, emoji, flags, lone marks, jamo, prepend, spacing mark, CR and LF.
const QStringList pieces =
    u"a|b|A|B|x|1|2| |-|_|.|/|\t|\u00A0|\u00E9|e\u0301|E\u0301|\u00C9|\u0130|i|\u00DF|\u1E9E|"
    u"\u01C5|\u01C6|\u01C4|\U0001F44D\U0001F3FD|\U0001F44D|\u0301|\u03A3|\u03C3|\u212A|k|\r\n|"
    u"\uFB00|\u4E1C|\u0660|\u200D|\U0001F1E9|\U0001F1EA|\u0600|\n|\r|\u1100|\u1161|\u0903|"
    u"\U0001F468"_s.split(u'|');

TEST(MatcherAgainstModel, agreesOnRandomShortStrings)
{
    std::mt19937 random(20260611);
    const auto draw = [&](size_t count) { return size_t(random() % count); };
    int matched = 0;
    for (int round = 0; round < 6000; ++round) {
        QStringList parts;
        for (size_t k = draw(10); k > 0; --k)
            parts.push_back(pieces[qsizetype(draw(size_t(pieces.size())))]);
        // Most queries are drawn from the candidate, so that many of them match.
        QString query;
        for (size_t k = 1 + draw(4); k > 0; --k) {
            const QStringList &from = !parts.isEmpty() && draw(4) != 0 ? parts : pieces;
            query += from[qsizetype(draw(size_t(from.size())))];
        }
        if (draw(3) == 0)
            query = query.toUpper();
        const QString candidate = parts.join(QString());

        const Model model(query, candidate);
        if (model.query.size() > 4 || model.n() > 10)
            continue;
        const auto expected = model.best();
        const std::optional<FuzzyMatch::Result> actual = FuzzyMatch::match(query, candidate);
        SCOPED_TRACE((u"<"_s + query + u"> in <"_s + candidate + u'>').toStdString());
        ASSERT_EQ(actual.has_value(), expected.has_value());
        if (!actual)
            continue;
        ++matched;
        EXPECT_EQ(actual->score, expected->first - MatchScores::lengthPenalty * double(model.n()));
        // The positions must be an allowed alignment with that very total, ending leftmost.
        const std::vector<qsizetype> positions(actual->positions.begin(), actual->positions.end());
        EXPECT_EQ(model.total(positions), std::optional<double>(expected->first));
        ASSERT_FALSE(positions.empty());
        EXPECT_EQ(positions.back(), expected->second);
    }
    // Guard against a generator that stops producing matches.
    EXPECT_GT(matched, 1000);
}

TEST(MatcherExamples, scoreAsTheSumOfTheRule)
{
    // What a query character earns where it lands, by the word bonus of that position. Unlike the
    // model above, these take no character class from the matcher's own Unicode helpers.
    using namespace MatchScores;
    constexpr double start = startBonus + positionBonus;
    constexpr double afterSeparator = afterSeparatorBonus + positionBonus;
    constexpr double hump = camelHumpBonus + positionBonus;
    constexpr double plain = positionBonus;
    const auto run = [](int k) { return k * (plain + consecutiveBonus); };
    const auto gap = [](int skipped) { return -gapPenalty * skipped; };
    const auto length = [](int n) { return -lengthPenalty * n; };
    struct Example
    {
        QString query, candidate;
        std::optional<double> score; // nothing: no match
        QList<qsizetype> positions = {};
    };
    const Example examples[] = {
        {u"nf"_s, u"NewsFeed"_s, start + hump + gap(3) + length(8), {0, 4}},
        {u"newsf"_s,
         u"NewsFeed"_s,
         start + run(3) + hump + consecutiveBonus + length(8),
         {0, 1, 2, 3, 4}},
        {u"gm"_s, u"game mode"_s, start + afterSeparator + gap(4) + length(9), {0, 5}},
        // A jump into the middle of a word may not pass over a letter.
        {u"ac"_s, u"abc"_s, {}},
        {u"ab"_s, u"a1a1b"_s, gap(2) + plain + gap(1) + plain + length(5), {2, 4}},
        // The best end wins; of equal ones, the leftmost.
        {u"aa"_s, u"a a a"_s, start + gap(1) + afterSeparator + length(5), {0, 2}},
        {u"l"_s, u"\U0001F44D\U0001F3FD Likes"_s, gap(2) + afterSeparator + length(7), {2}},
        {u"cafe\u0301"_s, u"Caf\u00E9 Noir"_s, start + run(3) + length(9), {0, 1, 2, 3}},
        {u"\u00DF"_s, u"Stra\u00DFe"_s, gap(4) + plain + length(6), {4}},
        // A titlecase digraph is neither case, so no hump; decomposed letters still make one.
        {u"\u01C6"_s, u"a\u01C5"_s, gap(1) + plain + length(2), {1}},
        {u"\u00E9"_s, u"ae\u0301E\u0301"_s, gap(2) + hump + length(3), {2}},
        // Capital dotted I lowercases to i and a dot, which no plain i equals.
        {u"i"_s, u"\u0130stanbul"_s, {}},
        {u"\u03C3"_s, u"\u039F\u03A3"_s, {}},
    };
    for (const Example &example : examples) {
        SCOPED_TRACE((example.query + u" in "_s + example.candidate).toStdString());
        const std::optional<FuzzyMatch::Result> result =
            FuzzyMatch::match(example.query, example.candidate);
        ASSERT_EQ(result.has_value(), example.score.has_value());
        if (result) {
            EXPECT_NEAR(result->score, *example.score, 1e-9);
            EXPECT_EQ(result->positions, example.positions);
        }
    }
}

} // namespace
