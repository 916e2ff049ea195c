// pindle-bench --filter as a whole process against the matcher: what it prints for a query, and
// that it never loads Qt.

#include "LineFilter.h"
#include "core/FuzzyMatch.h"
#include "core/Unicode.h"
#include "support/TestSupport.h"

#include <QProcess>

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

using namespace pindle;

namespace {

struct Finished
{
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;
};

// Runs pindle-bench with the input on a pipe, or, with inputFile, from that file.
Finished runBench(const QStringList &arguments, const QByteArray &input = {},
                  const QString &inputFile = {},
                  const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    if (!inputFile.isEmpty())
        process.setStandardInputFile(inputFile);
    process.start(QStringLiteral(PINDLE_BENCH), arguments);
    EXPECT_TRUE(process.waitForStarted());
    if (inputFile.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(120000));
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

// The contract of fzy -e, from the matcher: every line that matches, each with a line break,
// best first, lines of equal score in input order.
QByteArray expectedOutput(const QString &query, const QByteArray &input)
{
    struct Hit
    {
        double score;
        QByteArray line;
    };
    std::vector<Hit> hits;
    for (const QByteArray &line : input.split('\n')) {
        if (const auto match = FuzzyMatch::match(query, QString::fromUtf8(line)))
            hits.push_back({match->score, line});
    }
    std::stable_sort(hits.begin(), hits.end(),
                     [](const Hit &a, const Hit &b) { return a.score > b.score; });
    QByteArray output;
    for (const Hit &hit : hits)
        output += hit.line + '\n';
    return output;
}

TEST(Filter, printsEveryMatchBestFirstWithTiesInInputOrder)
{
    // Ties of every kind: the same line again, other lines of the same score, canonically
    // equivalent spellings; a CRLF line; and a last line without its line break, long enough to
    // end in a block of its own.
    const QByteArray tied = "ab 1\nxab\nab 2\ncaf\xC3\xA9 ab\ncafe\xCC\x81 ab\nab 1\nAB\r\nab 1\n";
    const QByteArray input = tied + QByteArray::fromStdString(test::generatedLines(1200, 3)) +
                             tied + QByteArray(100, 'x') + "ab";
    const QString inputFile = test::homePath() + u"/names.txt"_s;
    test::writeFile(inputFile, input);
    const QStringList queries =
        u"ab|a|n f|nf|news|git hub|kel|KELVIN|a;b|`q|x x|2024|caf\u00E9|\u0130s|stra\u00DFe|"
        u"\U0001F44D\U0001F3FD|\u6771|\u212A|\u037E|e\r|zzz"_s.split(u'|');
    for (const QString &query : queries) {
        SCOPED_TRACE(query.toStdString());
        const Finished run = runBench({u"--filter"_s, query}, {}, inputFile);
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.output, expectedOutput(query, input));
    }
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

TEST(Filter, neverLoadsQt)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LD_DEBUG"_s, u"libs"_s);
    const Finished run =
        runBench({u"--filter"_s, u"caf\u00E9"_s}, "Caf\xC3\xA9\n", {}, environment);
    EXPECT_EQ(run.output, "Caf\xC3\xA9\n");
    EXPECT_FALSE(run.errors.contains("libQt6")) << run.errors.toStdString();
}

} // namespace
