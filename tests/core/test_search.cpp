#include "core/Collation.h"
#include "core/FileIndex.h"
#include "core/FuzzyMatch.h"
#include "core/SearchIndex.h"
#include "core/SearchSession.h"
#include "core/ShortcutURL.h"
#include "core/Text.h"
#include "support/NameOrder.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace Qt::StringLiterals;

using namespace pindle;

namespace {

IndexedFile record(const QString &name, qsizetype number)
{
    return IndexedFile{QUrl::fromLocalFile(u"/shortcuts/%1/"_s.arg(number) + name), name};
}

IndexedFile prepared(const QString &name, qsizetype number)
{
    IndexedFile file = record(name, number);
    file.prepared = detail::NameBatch(1).prepare(name, Collation::sortKey(name));
    return file;
}

QList<IndexedFile> preparedList(const QStringList &names)
{
    QList<IndexedFile> files;
    for (const QString &name : names)
        files.push_back(prepared(name, files.size()));
    return files;
}

QStringList namesOf(const QList<ScoredFile> &results)
{
    QStringList names;
    for (const ScoredFile &result : results)
        names.push_back(result.file.displayName);
    return names;
}

// What the search must return, computed the slow way: the matcher on every name, then a stable
// sort by score and name order.
QList<ScoredFile> plainSearch(const QString &query, const QList<IndexedFile> &files)
{
    QList<ScoredFile> hits;
    for (const IndexedFile &file : files) {
        if (const auto result = FuzzyMatch::match(Text::trimmedWhitespace(query), file.displayName))
            hits.push_back({file, result->score, result->positions});
    }
    std::stable_sort(hits.begin(), hits.end(), [](const ScoredFile &a, const ScoredFile &b) {
        if (a.score != b.score)
            return a.score > b.score;
        return test::compareNames(a.file.displayName, b.file.displayName) < 0;
    });
    return hits;
}

void expectSameRows(const QList<ScoredFile> &actual, const QList<ScoredFile> &expected)
{
    ASSERT_EQ(actual.size(), expected.size());
    for (qsizetype i = 0; i < actual.size(); ++i) {
        SCOPED_TRACE(expected[i].file.displayName.toStdString());
        EXPECT_EQ(actual[i].file.url, expected[i].file.url);
        EXPECT_EQ(actual[i].score, expected[i].score);
        EXPECT_EQ(actual[i].positions, expected[i].positions);
    }
}

// Bookmark-like names: words in assorted case, camel case, digits, separators, and characters
// that need more than ASCII (accents both ways, emoji, case-changing letters).
QStringList generatedNames(int count, unsigned seed)
{
    const QStringList words =
        u"news|Feed|GitHub|mail|Doc|rust|book|HTTP|api|Map|notes|Wiki|a|b|Game|mode|Caf\u00E9|"
        u"cafe\u0301|\u0130stanbul|Stra\u00DFe|\u01C5ungla|\U0001F44D\U0001F3FD|\u039F\u03A3|"
        u"\u6771\u4EAC|NewsFeed|x|Git Hub|\U0001F44D ok"_s.split(u'|');
    const QStringList joins = u" |-|_|.|/|: || - |\t|\u00A0|#|1|2024"_s.split(u'|');
    std::mt19937 random(seed);
    QStringList names;
    for (int i = 0; i < count; ++i) {
        QString name;
        const int parts = 1 + int(random() % 5);
        for (int p = 0; p < parts; ++p) {
            if (p > 0)
                name += joins[qsizetype(random() % joins.size())];
            name += words[qsizetype(random() % words.size())];
        }
        names.push_back(name);
    }
    // Same names listed twice, so that list order has to break ties.
    names.push_back(names.front());
    names.push_back(names.front());
    return names;
}

const QStringList corpusQueries =
    u"n|nf|news|feed|gh|git hub|doc|a|ab|2|20|m|map|wiki| mail\t|-|caf\u00E9|CAFE\u0301|i|\u0130s|"
    u"stra\u00DFe|\u01C6|\U0001F44D|\u03C3|\u03C2|\u6771|gm|xb|#1|rb"_s.split(u'|');

QList<ScoredFile> firstRows(const QList<ScoredFile> &rows, qsizetype limit)
{
    return rows.first(std::min(limit, rows.size()));
}

TEST(PreparedSearch, returnsWhatThePlainMatcherAndOrderReturn)
{
    const QStringList names = generatedNames(1500, 7);
    const QList<IndexedFile> files = preparedList(names);
    QList<IndexedFile> unprepared;
    QList<IndexedFile> renamed;
    for (qsizetype i = 0; i < files.size(); ++i) {
        unprepared.push_back(record(names[i], i));
        // Prepared for another name, then renamed: the stale data must not be used.
        IndexedFile file = prepared(names[(i + 1) % names.size()], i);
        file.displayName = names[i];
        file.url = unprepared.back().url;
        renamed.push_back(file);
    }
    // Typed one character at a time into one session, as a panel does, so that each key stroke
    // searches only what passed before.
    SearchSession session;
    for (const QString &query : corpusQueries) {
        SCOPED_TRACE(query.toStdString());
        for (qsizetype typed = 1; typed < query.size(); ++typed)
            expectSameRows(FileIndex::search(query.first(typed), files, 8, session),
                           firstRows(plainSearch(query.first(typed), files), 8));
        const QList<ScoredFile> expected = plainSearch(query, files);
        ASSERT_FALSE(expected.isEmpty());
        expectSameRows(FileIndex::search(query, files, 8, session), firstRows(expected, 8));
        expectSameRows(FileIndex::search(query, files, files.size()), expected);
        expectSameRows(FileIndex::search(query, files, 100), firstRows(expected, 100));
        expectSameRows(FileIndex::search(query, unprepared, 8), firstRows(expected, 8));
        expectSameRows(FileIndex::search(query, renamed, 8), firstRows(expected, 8));
    }
}

TEST(SearchRanking, blankQueriesListNothingAndOnlySpacesAndTabsAreTrimmed)
{
    const QList<IndexedFile> files =
        preparedList({u"Doc 10"_s, u"Doc10"_s, u"Doc\n"_s, u" "_s, u"\t"_s});
    EXPECT_TRUE(FileIndex::search(u""_s, files, 8).isEmpty());
    EXPECT_TRUE(FileIndex::search(u"  \t "_s, files, 8).isEmpty());
    EXPECT_TRUE(FileIndex::search(u"doc"_s, files, 0).isEmpty());
    expectSameRows(FileIndex::search(u" \tdoc\u00A0 "_s, files, 8),
                   FileIndex::search(u"doc"_s, files, 8));
    EXPECT_EQ(namesOf(FileIndex::search(u"oc 1"_s, files, 8)), QStringList{u"Doc 10"_s});
    EXPECT_EQ(namesOf(FileIndex::search(u"c\n"_s, files, 8)), QStringList{u"Doc\n"_s});
}

TEST(SearchRanking, laterNamesThatTieStillEnterAFullList)
{
    // Equal scores, best names last: each has to displace a kept row by its name alone.
    const QList<IndexedFile> files =
        preparedList({u"Doc e"_s, u"Doc d"_s, u"Doc c"_s, u"Doc b"_s, u"Doc a"_s});
    EXPECT_EQ(namesOf(FileIndex::search(u"doc"_s, files, 2)),
              (QStringList{u"Doc a"_s, u"Doc b"_s}));
}

TEST(SearchRanking, aLaterNameThatWinsOnlyByItsCamelHumpsStillEntersAFullList)
{
    // Once the row is full, names that can't beat it are passed over; a lowercase-uppercase
    // step such as "aB" adds more than any step of a name without one could, so the bound must
    // know of every hump, also one between the eighth and ninth characters.
    for (const QString &camel : {u"xaBcDe"_s, u"xxxxxx aBcde"_s}) {
        const QList<IndexedFile> files = preparedList({u"abcde"_s, camel});
        EXPECT_EQ(namesOf(FileIndex::search(u"abcde"_s, files, 1)), QStringList{camel});
    }
    // Each hump can add to one step: three of them beat a row that two earn.
    const QList<IndexedFile> files = preparedList({u"aBcDefg"_s, u"xxxxxx aBcDeFg"_s});
    EXPECT_EQ(namesOf(FileIndex::search(u"abcdefg"_s, files, 1)), QStringList{u"xxxxxx aBcDeFg"_s});
}

TEST(SearchRanking, aSessionFollowsChangesToTheListBetweenKeyStrokes)
{
    SearchSession session;
    QList<IndexedFile> files = preparedList({u"Alpha"_s, u"Beta"_s});
    EXPECT_EQ(namesOf(FileIndex::search(u"a"_s, files, 8, session)),
              (QStringList{u"Alpha"_s, u"Beta"_s}));
    // Renamed in place while the query grows: the new name counts, not what was prepared.
    files[1].displayName = u"Gamma"_s;
    EXPECT_EQ(namesOf(FileIndex::search(u"am"_s, files, 8, session)), QStringList{u"Gamma"_s});
    // A record added while the query grows is searched too.
    files.push_back(prepared(u"Amber"_s, 2));
    EXPECT_EQ(namesOf(FileIndex::search(u"amb"_s, files, 8, session)), QStringList{u"Amber"_s});
    // The same names in another list, searched with a shorter query and then a longer one.
    const QList<IndexedFile> other = preparedList({u"Beta"_s, u"Alpha"_s});
    EXPECT_EQ(namesOf(FileIndex::search(u"a"_s, other, 8, session)),
              (QStringList{u"Alpha"_s, u"Beta"_s}));
    EXPECT_EQ(namesOf(FileIndex::search(u"b"_s, other, 8, session)), QStringList{u"Beta"_s});
}

// URL matching over shortcut files written into the shortcut folder.
class UrlMatching : public testing::Test
{
protected:
    IndexedFile write(const QString &fileName, const QString &target)
    {
        const QString name = fileName.section(u'.', 0, 0);
        QString path = test::shortcutFolder() + u'/' + fileName;
        if (fileName.endsWith(u".url"_s))
            test::writeFile(path, "[InternetShortcut]\r\nURL=" + target.toUtf8() + "\r\n");
        else
            path = test::writeWebloc(name, target);
        return IndexedFile{QUrl::fromLocalFile(path), name};
    }

    void TearDown() override { ShortcutURL::clearCaches(); }
};

TEST_F(UrlMatching, findsExactTargetsOnlyInListOrder)
{
    QList<IndexedFile> files = {
        write(u"Slash.webloc"_s, u"https://host/a/"_s), write(u"First.url"_s, u"https://host/a"_s),
        write(u"Plain.webloc"_s, u"http://host/a"_s),   write(u"Upper.url"_s, u"HTTPS://HOST/a"_s),
        write(u"Second.webloc"_s, u"https://host/a"_s),
    };
    test::writeFile(test::shortcutFolder() + u"/notes.txt"_s, "https://host/a");
    files.push_back(
        IndexedFile{QUrl::fromLocalFile(test::shortcutFolder() + u"/notes.txt"_s), u"notes.txt"_s});

    const QList<ScoredFile> results = FileIndex::matching(u"https://host/a \r\n"_s, files, 6);
    EXPECT_EQ(namesOf(results), (QStringList{u"First"_s, u"Second"_s}));
    for (const ScoredFile &result : results) {
        EXPECT_EQ(result.score, 0);
        EXPECT_TRUE(result.positions.isEmpty());
    }
    EXPECT_EQ(namesOf(FileIndex::matching(u"https://host/a"_s, files, 1)), QStringList{u"First"_s});
    EXPECT_TRUE(FileIndex::matching(u"https://host/a"_s, files, 0).isEmpty());
    EXPECT_TRUE(FileIndex::matching(u" \n\t"_s, files, 6).isEmpty());
}

TEST_F(UrlMatching, comparesUpToCanonicalEquivalence)
{
    const QList<IndexedFile> files = {write(u"Cafe.webloc"_s, u"https://host/caf\u00E9"_s),
                                      write(u"Plain.url"_s, u"https://host/cafe"_s)};
    EXPECT_EQ(namesOf(FileIndex::matching(u"https://host/cafe\u0301"_s, files, 6)),
              QStringList{u"Cafe"_s});
    // The Kelvin sign decomposes to a plain "K": equivalence reaches across ASCII too.
    const QList<IndexedFile> kelvin = {write(u"Ascii.url"_s, u"https://host/K"_s),
                                       write(u"Sign.url"_s, u"https://host/\u212A"_s),
                                       write(u"Lower.url"_s, u"https://host/k"_s)};
    EXPECT_EQ(namesOf(FileIndex::matching(u"https://host/\u212A"_s, kelvin, 6)),
              (QStringList{u"Ascii"_s, u"Sign"_s}));
    EXPECT_EQ(namesOf(FileIndex::matching(u"https://host/K"_s, kelvin, 6)),
              (QStringList{u"Ascii"_s, u"Sign"_s}));
}

// Large lists are read on two threads before matching; every kind of file still gets its own
// reader and its answer, in list order.
TEST_F(UrlMatching, readsALargeListOnTwoThreadsWithTheSameAnswers)
{
    QList<IndexedFile> files;
    QStringList expected;
    for (int i = 0; i < 300; ++i) {
        const QString name = u"file %1"_s.arg(i, 3, 10, QChar(u'0'));
        const QString target = i % 7 == 0 ? u"https://x/same"_s : u"https://x/%1"_s.arg(i);
        files.push_back(write(name + (i % 2 ? u".url"_s : u".webloc"_s), target));
        if (i % 7 == 0)
            expected.append(files.back().displayName);
    }
    test::writeFile(test::shortcutFolder() + u"/broken.webloc"_s, "<plist><dict>");
    files.insert(150, IndexedFile{QUrl::fromLocalFile(test::shortcutFolder() + u"/broken.webloc"_s),
                                  u"broken"_s});

    EXPECT_EQ(namesOf(FileIndex::matching(u"https://x/same"_s, files, 300)), expected);
}

} // namespace
