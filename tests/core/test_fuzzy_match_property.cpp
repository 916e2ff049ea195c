// The matcher against a slow model that tries every alignment, on random short strings built
// from characters that stress the Unicode rules.

#include "core/FuzzyMatch.h"
#include "core/UnicodeQt.h"

#include <gtest/gtest.h>
#include <unicode/brkiter.h>

#include <functional>
#include <optional>
#include <random>
#include <vector>

using namespace pindle;

namespace {

QString u(const char16_t *text)
{
    return QString::fromUtf16(text);
}

std::vector<QString> characters(const QString &text)
{
    const std::vector<qsizetype> bounds = Unicode::clusterBoundaries(text);
    std::vector<QString> result;
    for (size_t c = 0; c + 1 < bounds.size(); ++c)
        result.push_back(text.mid(bounds[c], bounds[c + 1] - bounds[c]));
    return result;
}

// The model: the score of every allowed alignment written out from its definition.
struct Model
{
    std::vector<QString> query;   // lowercased, decomposed
    std::vector<QString> lowered; // the candidate lowercased, decomposed
    std::vector<double> bonus;
    std::vector<bool> isStart;
    std::vector<bool> isLetter;
    bool isMatchable = false;

    Model(const QString &q, const QString &candidate)
    {
        for (const QString &c : characters(Unicode::lowercased(q)))
            query.push_back(Unicode::decomposed(c));
        const std::vector<QString> original = characters(candidate);
        for (const QString &c : characters(Unicode::lowercased(candidate)))
            lowered.push_back(Unicode::decomposed(c));
        const QString separatorList = u(u" -_./\\:,()[]{}@+&'\"#~");
        const size_t n = original.size();
        for (size_t j = 0; j < n; ++j) {
            double base = 0;
            if (j == 0)
                base = 12;
            else if (original[j - 1].size() == 1 && separatorList.contains(original[j - 1]))
                base = 10;
            else if (Unicode::isLowercase(original[j - 1]) && Unicode::isUppercase(original[j]))
                base = 9;
            bonus.push_back(base + 1);
            isStart.push_back(base > 0);
            isLetter.push_back(Unicode::isLetter(original[j]));
        }
        isMatchable = !query.empty() && n >= query.size() && lowered.size() >= n;
    }

    size_t n() const { return bonus.size(); }

    // The total of an alignment, or nothing when it is not allowed.
    std::optional<double> total(const std::vector<qsizetype> &p) const
    {
        if (p.size() != query.size())
            return std::nullopt;
        double sum = 0;
        for (size_t i = 0; i < p.size(); ++i) {
            if (p[i] < 0 || size_t(p[i]) >= n() || lowered[size_t(p[i])] != query[i])
                return std::nullopt;
            sum += bonus[size_t(p[i])];
            if (i == 0) {
                sum -= 0.5 * double(p[0]);
                continue;
            }
            if (p[i] <= p[i - 1])
                return std::nullopt;
            if (p[i] == p[i - 1] + 1) {
                sum += 15;
                continue;
            }
            sum -= 0.5 * double(p[i] - p[i - 1] - 1);
            if (!isStart[size_t(p[i])])
                for (qsizetype k = p[i - 1] + 1; k < p[i]; ++k)
                    if (isLetter[size_t(k)])
                        return std::nullopt;
        }
        return sum;
    }

    struct Best
    {
        double total;
        qsizetype leftmostEnd;
    };

    std::optional<Best> best() const
    {
        if (!isMatchable)
            return std::nullopt;
        std::optional<Best> found;
        std::vector<qsizetype> p;
        std::function<void(qsizetype)> extend = [&](qsizetype from) {
            if (p.size() == query.size()) {
                const std::optional<double> t = total(p);
                if (t && (!found || *t > found->total ||
                          (*t == found->total && p.back() < found->leftmostEnd)))
                    found = Best{*t, p.back()};
                return;
            }
            for (qsizetype j = from; j < qsizetype(n()); ++j) {
                p.push_back(j);
                extend(j + 1);
                p.pop_back();
            }
        };
        extend(0);
        return found;
    }
};

// Letters in both cases, digits, separators, composed and decomposed accents, characters whose
// case mapping changes length, titlecase, emoji with a modifier, a lone combining mark, CRLF.
std::vector<QString> pieces()
{
    const QStringList list =
        u(u"a|b|A|B|x|1|2| |-|_|.|/|\t|\u00A0|\u00E9|e\u0301|E\u0301|\u00C9|\u0130|i|\u00DF|"
          u"\u1E9E|\u01C5|\u01C6|\u01C4|\U0001F44D\U0001F3FD|\U0001F44D|\u0301|\u03A3|"
          u"\u03C3|\u212A|k|\r\n|\uFB00|\u4E1C|\u0660")
            .split(u'|');
    return {list.begin(), list.end()};
}

TEST(MatcherAgainstModel, agreesOnRandomShortStrings)
{
    std::mt19937 random(20260611);
    const std::vector<QString> all = pieces();
    std::uniform_int_distribution<size_t> anyPiece(0, all.size() - 1);
    int matched = 0;
    for (int round = 0; round < 6000; ++round) {
        std::vector<QString> parts(std::uniform_int_distribution<size_t>(0, 9)(random));
        for (QString &part : parts)
            part = all[anyPiece(random)];
        QString candidate;
        for (const QString &part : parts)
            candidate += part;
        // Most queries are drawn from the candidate, so that many of them match.
        QString query;
        const size_t length = std::uniform_int_distribution<size_t>(1, 4)(random);
        for (size_t i = 0; i < length; ++i) {
            if (!parts.empty() && random() % 4 != 0)
                query += parts[std::uniform_int_distribution<size_t>(0, parts.size() - 1)(random)];
            else
                query += all[anyPiece(random)];
        }
        if (random() % 3 == 0)
            query = query.toUpper();

        const Model model(query, candidate);
        if (model.query.size() > 4 || model.n() > 10)
            continue;
        const std::optional<Model::Best> expected = model.best();
        const std::optional<FuzzyMatch::Result> actual = FuzzyMatch::match(query, candidate);
        SCOPED_TRACE("query <" + query.toStdString() + "> candidate <" + candidate.toStdString() +
                     ">");
        ASSERT_EQ(actual.has_value(), expected.has_value());
        if (!actual)
            continue;
        ++matched;
        EXPECT_EQ(actual->score, expected->total - 0.05 * double(model.n()));
        // The positions must be an allowed alignment with that very total, ending leftmost.
        const std::vector<qsizetype> positions(actual->positions.begin(), actual->positions.end());
        EXPECT_EQ(model.total(positions), std::optional<double>(expected->total));
        ASSERT_FALSE(positions.empty());
        EXPECT_EQ(positions.back(), expected->leftmostEnd);
    }
    // Guard against a generator that stops producing matches.
    EXPECT_GT(matched, 1000);
}

TEST(UnicodeCharacterTests, followTheCaseAndLetterDefinitions)
{
    struct Case
    {
        QString character;
        bool isLowercase, isUppercase, isLetter;
    };
    const Case cases[] = {
        {u(u"a"), true, false, true},
        {u(u"Z"), false, true, true},
        {u(u"7"), false, false, false},
        {u(u"\u00DF"), true, false, true},  // ß: Lowercase property
        {u(u"\u1E9E"), false, true, true},  // capital sharp s
        {u(u"\u01C5"), false, false, true}, // ǅ: titlecase, neither
        {u(u"e\u0301"), true, false, true}, // two scalars: by its mappings
        {u(u"E\u0301"), false, true, true},
        {u(u"\U0001F44D\U0001F3FD"), false, false, false},
        {u(u"\u4E1C"), false, false, true}, // uncased letter
        // Lowercase through Other_Lowercase, and also uppercase by the definition: it is Cased and
        // has no uppercase mapping.
        {u(u"\u02B0"), true, true, true},
        {u(u"\u0660"), false, false, false}, // Arabic-Indic digit
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.character.toStdString());
        EXPECT_EQ(Unicode::isLowercase(c.character), c.isLowercase);
        EXPECT_EQ(Unicode::isUppercase(c.character), c.isUppercase);
        EXPECT_EQ(Unicode::isLetter(c.character), c.isLetter);
    }
}

// Boundaries from ICU's iterator run over the whole text, to check the shortcuts the helper
// takes around ASCII.
std::vector<qsizetype> wholeTextBoundaries(const QString &text)
{
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> breaks(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    const icu::UnicodeString source(false, reinterpret_cast<const char16_t *>(text.utf16()),
                                    int32_t(text.size()));
    breaks->setText(source);
    std::vector<qsizetype> result{0};
    for (int32_t at = breaks->next(); at != icu::BreakIterator::DONE; at = breaks->next())
        result.push_back(at);
    return result;
}

TEST(UnicodeText, segmentsLikeTheWholeTextIterator)
{
    std::mt19937 random(99);
    std::vector<QString> all = pieces();
    for (const char16_t *extra : {u"\u200D", u"\U0001F1E9", u"\U0001F1EA", u"\u0600", u"\n", u"\r",
                                  u"\u1100", u"\u1161", u"\u0903", u"\U0001F468"})
        all.push_back(QString::fromUtf16(extra));
    for (int round = 0; round < 3000; ++round) {
        QString text;
        const int length = int(random() % 10);
        for (int i = 0; i < length; ++i)
            text += all[random() % all.size()];
        SCOPED_TRACE(text.toStdString());
        ASSERT_EQ(Unicode::clusterBoundaries(text), wholeTextBoundaries(text));
    }
}

} // namespace
