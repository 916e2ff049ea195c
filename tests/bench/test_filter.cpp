// pindle-bench --filter, as bench/compare.sh runs it against fzy -e, must print what the matcher
// says: every line that matches, best first, lines of equal score in input order. A filter that
// passed lines over would only look faster.

#include "core/FuzzyMatch.h"
#include "support/TestSupport.h"

#include <QProcess>

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// The input comes from a file, as compare.sh redirects it.
QByteArray run(const QStringList &arguments, const QString &inputFile = u"/dev/null"_s)
{
    QProcess process;
    process.setStandardInputFile(inputFile);
    process.start(QStringLiteral(PINDLE_BENCH), arguments);
    EXPECT_TRUE(process.waitForFinished(120000));
    EXPECT_EQ(process.exitCode(), 0);
    return process.readAllStandardOutput();
}

QByteArray expectedOutput(const QString &query, const QByteArray &input)
{
    std::vector<std::pair<double, QByteArray>> hits;
    for (const QByteArray &line : input.split('\n')) {
        if (const auto match = pindle::FuzzyMatch::match(query, QString::fromUtf8(line)))
            hits.emplace_back(match->score, line);
    }
    std::stable_sort(hits.begin(), hits.end(),
                     [](const auto &a, const auto &b) { return a.first > b.first; });
    QByteArray output;
    for (const auto &hit : hits)
        output += hit.second + '\n';
    return output;
}

TEST(Filter, printsEveryMatchOfTheBenchmarkCorpusBestFirstWithTiesInInputOrder)
{
    // Ties (the same line again, lines of one score, equivalent spellings), CRLF, characters
    // beyond ASCII that lowercase to ASCII ones, and a long last line with no line break.
    const QByteArray tied = "ab 1\nxab\nab 2\ncaf\xC3\xA9 ab\ncafe\xCC\x81 ab\nab 1\nAB\r\nab 1\n"
                            "\xE2\x84\xAA"
                            "el\na\xCD\xBE"
                            "b\n\xE1\xBF\xAFq\n";
    const QByteArray input =
        tied + run({u"--corpus"_s, u"3000"_s}) + tied + QByteArray(100, 'x') + "ab";
    const QString inputFile = pindle::test::homePath() + u"/names.txt"_s;
    pindle::test::writeFile(inputFile, input);
    for (const QString &query :
         u"ab|a|n f|nf|news|git hub|kel|KELVIN|a;b|`q|x x|2024|caf\u00E9|\u0130s|stra\u00DFe|"
         u"\U0001F44D\U0001F3FD|\u6771|\u212A|\u037E|e\r|zzz"_s.split(u'|')) {
        SCOPED_TRACE(query.toStdString());
        EXPECT_EQ(run({u"--filter"_s, query}, inputFile), expectedOutput(query, input));
    }
}

} // namespace
