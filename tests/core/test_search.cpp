// The search against the slow way: the matcher on every name, then a stable sort by score and
// the collator's name order. Then URL matching over real shortcut files.

#include "core/Collation.h"
#include "core/FileIndex.h"
#include "core/FuzzyMatch.h"
#include "core/SearchIndex.h"
#include "core/SearchSession.h"
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

QList<ScoredFile> plainSearch(const QString &query, const QList<IndexedFile> &files,
                              qsizetype limit)
{
    QList<ScoredFile> hits;
    for (const IndexedFile &file : files) {
        if (const auto result = FuzzyMatch::match(query.trimmed(), file.displayName))
            hits.push_back({file, result->score, result->positions});
    }
    std::stable_sort(hits.begin(), hits.end(), [](const ScoredFile &a, const ScoredFile &b) {
        if (a.score != b.score)
            return a.score > b.score;
        return Collation::sortKey(a.file.displayName) < Collation::sortKey(b.file.displayName);
    });
    return hits.first(std::min(limit, hits.size()));
}

// Each row as its file, score and positions.
QStringList rows(const QList<ScoredFile> &results)
{
    QStringList rows;
    for (const ScoredFile &result : results) {
        rows.push_back(result.file.url.toString() + u' ' + QString::number(result.score, 'g', 17));
        for (const qsizetype position : result.positions)
            rows.back() += u' ' + QString::number(position);
    }
    return rows;
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
        for (int p = 0, parts = 1 + int(random() % 5); p < parts; ++p) {
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
    for (const QString &query :
         u"n|nf|news|feed|gh|git hub|doc|a|ab|2|20|m|map|wiki| mail\t|-|caf\u00E9|CAFE\u0301|i|"
         u"\u0130s|stra\u00DFe|\u01C6|\U0001F44D|\u03C3|\u03C2|\u6771|gm|xb|#1|rb"_s.split(u'|')) {
        SCOPED_TRACE(query.toStdString());
        for (qsizetype typed = 1; typed <= query.size(); ++typed)
            EXPECT_EQ(rows(FileIndex::search(query.first(typed), files, 8, session)),
                      rows(plainSearch(query.first(typed), files, 8)));
        const QStringList all = rows(plainSearch(query, files, files.size()));
        ASSERT_FALSE(all.isEmpty());
        EXPECT_EQ(rows(FileIndex::search(query, files, files.size())), all);
        EXPECT_EQ(rows(FileIndex::search(query, files, 100)),
                  all.first(std::min(100, int(all.size()))));
        for (const QList<IndexedFile> &list : {unprepared, renamed})
            EXPECT_EQ(rows(FileIndex::search(query, list, 8)),
                      all.first(std::min(8, int(all.size()))));
    }
}

// Lists the generated names rarely make: once the rows are full, the last name must still enter
// by its name order alone, or by camel humps anywhere in it (each can add to one step).
TEST(PreparedSearch, letsTheLastNameIntoAFullList)
{
    const std::pair<QStringList, QString> cases[] = {
        {{u"Doc c"_s, u"Doc b"_s, u"Doc a"_s}, u"doc"_s},
        {{u"abcde"_s, u"xaBcDe"_s}, u"abcde"_s},
        {{u"abcde"_s, u"xxxxxx aBcde"_s}, u"abcde"_s},
        {{u"aBcDefg"_s, u"xxxxxx aBcDeFg"_s}, u"abcdefg"_s},
    };
    for (const auto &[names, query] : cases)
        EXPECT_EQ(namesOf(FileIndex::search(query, preparedList(names), 1)),
                  QStringList{names.last()});
}

TEST(PreparedSearch, trimsOnlyBlanksAndListsNothingForABlankQuery)
{
    const QList<IndexedFile> files =
        preparedList({u"Doc 10"_s, u"Doc10"_s, u"Doc\n"_s, u" "_s, u"\t"_s});
    EXPECT_TRUE(FileIndex::search(u"  \t "_s, files, 8).isEmpty());
    EXPECT_TRUE(FileIndex::search(u"doc"_s, files, 0).isEmpty());
    EXPECT_EQ(namesOf(FileIndex::search(u" \tc 1\u00A0 "_s, files, 8)), QStringList{u"Doc 10"_s});
    EXPECT_EQ(namesOf(FileIndex::search(u"c\n"_s, files, 8)), QStringList{u"Doc\n"_s});
}

TEST(PreparedSearch, aSessionFollowsChangesToTheListBetweenKeyStrokes)
{
    SearchSession session;
    QList<IndexedFile> files = preparedList({u"Alpha"_s, u"Beta"_s});
    EXPECT_EQ(namesOf(FileIndex::search(u"a"_s, files, 8, session)),
              (QStringList{u"Alpha"_s, u"Beta"_s}));
    // Renamed in place, then a record added, while the query grows.
    files[1].displayName = u"Gamma"_s;
    EXPECT_EQ(namesOf(FileIndex::search(u"am"_s, files, 8, session)), QStringList{u"Gamma"_s});
    files.push_back(prepared(u"Amber"_s, 2));
    EXPECT_EQ(namesOf(FileIndex::search(u"amb"_s, files, 8, session)), QStringList{u"Amber"_s});
    // Another list, searched with a shorter query and then a longer one.
    const QList<IndexedFile> other = preparedList({u"Beta"_s, u"Alpha"_s});
    EXPECT_EQ(namesOf(FileIndex::search(u"a"_s, other, 8, session)),
              (QStringList{u"Alpha"_s, u"Beta"_s}));
    EXPECT_EQ(namesOf(FileIndex::search(u"b"_s, other, 8, session)), QStringList{u"Beta"_s});
}

IndexedFile written(const QString &name, const QString &target)
{
    if (name.endsWith(u".url"_s))
        test::writeFile(test::inFolder(name), "[InternetShortcut]\r\nURL=" + target.toUtf8());
    else if (name.endsWith(u".webloc"_s))
        test::writeWebloc(name.chopped(7), target);
    else
        test::writeFile(test::inFolder(name), target.toUtf8());
    return IndexedFile{QUrl::fromLocalFile(test::inFolder(name)), name};
}

// Large lists are read on two threads: every kind of file still gets its own reader, and only
// exact targets (up to canonical equivalence) match, in list order.
TEST(UrlMatching, findsExactTargetsOnlyInListOrder)
{
    const QStringList nearMisses = {u"https://host/a/"_s, u"http://host/a"_s, u"HTTPS://HOST/a"_s,
                                    u"https://host/a\u0301"_s};
    QList<IndexedFile> files;
    QStringList expected;
    for (int i = 0; i < 300; ++i) {
        const QString name = u"%1%2"_s.arg(i).arg(i % 2 ? u".url"_s : u".webloc"_s);
        files.push_back(written(name, i % 5 ? nearMisses[i % 5 - 1] : u"https://host/a"_s));
        if (i % 5 == 0)
            expected.append(name);
    }
    files.insert(150, written(u"broken.inetloc"_s, u"<plist><dict>"_s));
    files.insert(7, written(u"notes.txt"_s, u"https://host/a"_s));

    EXPECT_EQ(namesOf(FileIndex::matching(u"https://host/a \r\n"_s, files, 300)), expected);
    EXPECT_EQ(namesOf(FileIndex::matching(u"https://host/a"_s, files, 1)),
              QStringList{u"0.webloc"_s});
    EXPECT_TRUE(FileIndex::matching(u"https://host/a"_s, files, 0).isEmpty());
    EXPECT_TRUE(FileIndex::matching(u" \n\t"_s, files, 300).isEmpty());
    // The Kelvin sign decomposes to a plain "K": equivalence reaches across ASCII too.
    const QList<IndexedFile> kelvin = {written(u"Ascii.url"_s, u"https://host/K"_s),
                                       written(u"Sign.webloc"_s, u"https://host/\u212A"_s),
                                       written(u"Lower.url"_s, u"https://host/k"_s),
                                       written(u"Accent.url"_s, u"https://host/\u00E1"_s)};
    EXPECT_EQ(namesOf(FileIndex::matching(u"https://host/\u212A"_s, kelvin, 6)),
              (QStringList{u"Ascii.url"_s, u"Sign.webloc"_s}));
    EXPECT_EQ(namesOf(FileIndex::matching(u"https://host/a\u0301"_s, kelvin, 6)),
              QStringList{u"Accent.url"_s});
}

} // namespace
