// The search against the slow way: the matcher on every name, then a stable sort by score and
// the collator's name order. Then the creator's matching of an address.

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

// Records as a scan makes them, with their search data.
QList<IndexedFile> preparedList(const QStringList &names)
{
    QList<IndexedFile> files;
    for (const QString &name : names)
        files.push_back({QUrl::fromLocalFile(u"/shortcuts/%1/"_s.arg(files.size()) + name), name,
                         detail::NameBatch(1).prepare(name, Collation::sortKey(name))});
    return files;
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
    const QString first = names.front();
    return names << first << first;
}

TEST(PreparedSearch, returnsWhatThePlainMatcherAndOrderReturn)
{
    const QStringList names = generatedNames(1500, 7);
    const QList<IndexedFile> files = preparedList(names);
    // Records made elsewhere than in a scan come without search data.
    QList<IndexedFile> unprepared = files;
    for (IndexedFile &file : unprepared)
        file.prepared = nullptr;
    // Typed one character at a time into one session, as a panel does, so that each key stroke
    // searches only what passed before.
    SearchSession session;
    for (const QString &query :
         u"n|nf|news|feed|gh|git hub|doc|a|ab|2|20|m|map|wiki|\u00A0mail\t|-|"
         u"caf\u00E9|CAFE\u0301|i|\u0130s|stra\u00DFe|\u01C6|\U0001F44D|"
         u"\u03C3|\u03C2|\u6771|gm|xb|#1|rb"_s.split(u'|')) {
        SCOPED_TRACE(query.toStdString());
        EXPECT_TRUE(FileIndex::search(query, files, 0).isEmpty());
        for (qsizetype typed = 1; typed <= query.size(); ++typed)
            EXPECT_EQ(rows(FileIndex::search(query.first(typed), files, 8, session)),
                      rows(plainSearch(query.first(typed), files, 8)));
        const QStringList all = rows(plainSearch(query, files, files.size()));
        ASSERT_FALSE(all.isEmpty());
        EXPECT_EQ(rows(FileIndex::search(query, files, files.size())), all);
        EXPECT_EQ(rows(FileIndex::search(query, files, 100)),
                  all.first(std::min(100, int(all.size()))));
        EXPECT_EQ(rows(FileIndex::search(query, unprepared, 8)),
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
        EXPECT_EQ(FileIndex::search(query, preparedList(names), 1).value(0).file.displayName,
                  names.last());
}

// The shortcuts that hold an address: exactly it (no slash, scheme or case forgiven), up to
// canonical equivalence, which reaches across ASCII too (the Kelvin sign is a plain K), in list
// order and up to the limit.
TEST(UrlMatching, findsTheTargetsEqualToTheTrimmedAddressUpToCanonicalEquivalence)
{
    const QStringList targets = {
        u"https://host/a/"_s,     u"https://host/a"_s,         u"http://host/a"_s,
        u"HTTPS://HOST/a"_s,      u"https://host/caf\u00E9"_s, u"https://host/K"_s,
        u"https://host/\u212A"_s, u"https://host/k"_s,         u"https://host/a"_s};
    QList<IndexedFile> files;
    for (const QString &target : targets)
        files.push_back(
            {QUrl::fromLocalFile(test::writeWebloc(QString::number(files.size()), target)),
             QString::number(files.size())});
    const auto found = [&](const QString &url, qsizetype limit = 9) {
        QStringList names;
        for (const ScoredFile &result : FileIndex::matching(url, files, limit))
            names.push_back(result.file.displayName);
        return names;
    };
    EXPECT_EQ(found(u" https://host/a\r\n"_s), (QStringList{u"1"_s, u"8"_s}));
    EXPECT_EQ(found(u"https://host/a"_s, 1), QStringList{u"1"_s});
    EXPECT_EQ(found(u"https://host/cafe\u0301"_s), QStringList{u"4"_s});
    EXPECT_EQ(found(u"https://host/\u212A"_s), (QStringList{u"5"_s, u"6"_s}));
    EXPECT_EQ(found(u"https://host/K"_s), (QStringList{u"5"_s, u"6"_s}));
    EXPECT_EQ(found(u" \n"_s), QStringList());
}

} // namespace
