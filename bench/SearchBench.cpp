// Search benchmark: the modes of pindle-bench that run the launcher's search, which needs Qt.
// pindle-bench filters by itself, without Qt, and hands every other command line to this
// program, found beside it.
//
//   pindle-bench                          per-key-stroke latency table on generated corpora
//   pindle-bench --keystrokes FILE Q...   type each query into a search over FILE's names
//   pindle-bench --corpus N               print the generated corpus of N names
//
// Timings are of one thread, around the library calls only.

#include "core/Collation.h"
#include "core/FileIndex.h"
#include "core/SearchIndex.h"
#include "core/SearchSession.h"

#include <QFile>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <random>
#include <string_view>
#include <vector>

using namespace Qt::StringLiterals;

using namespace pindle;

namespace {

constexpr qsizetype launcherLimit = 8;

// The calling thread's CPU time: the work is single-threaded and never waits, so on an idle
// machine this is its wall-clock time, and other processes on a busy one don't inflate it.
struct Clock
{
    using time_point = double;
    static double now()
    {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
    }
};

double millisecondsSince(Clock::time_point start)
{
    return Clock::now() - start;
}

// Bookmark titles as a browser saves them: site names, article titles, repositories, issues,
// camel-case names, version numbers and dates; about one in twenty has non-ASCII text (accents
// precomposed and combining, other scripts, emoji).
QStringList generatedCorpus(int count)
{
    static const char *sites[] = {"GitHub",       "Stack Overflow", "YouTube",
                                  "Wikipedia",    "Reddit",         "Hacker News",
                                  "MDN Web Docs", "Medium",         "LWN.net",
                                  "arXiv",        "Google Docs",    "Notion",
                                  "Jira",         "Confluence",     "Gmail",
                                  "The Guardian", "BBC News",       "cppreference.com",
                                  "Qt Forum",     "Arch Wiki",      "Debian Wiki",
                                  "npm",          "crates.io",      "PyPI"};
    static const char *words[] = {
        "rust",     "book",     "linux",   "kernel",   "news",     "feed",     "mail",
        "docs",     "api",      "react",   "hooks",    "async",    "await",    "memory",
        "model",    "release",  "notes",   "guide",    "how",      "to",       "build",
        "install",  "config",   "server",  "client",   "design",   "pattern",  "review",
        "weekly",   "report",   "budget",  "travel",   "recipe",   "pasta",    "music",
        "playlist", "python",   "string",  "format",   "unicode",  "grapheme", "cluster",
        "search",   "fuzzy",    "finder",  "keyboard", "launcher", "shortcut", "window",
        "manager",  "desktop",  "session", "backup",   "restore",  "cloud",    "storage",
        "invoice",  "tax",      "return",  "bank",     "account",  "health",   "sleep",
        "running",  "training", "plan",    "meeting",  "agenda",   "project",  "roadmap",
        "issue",    "pull",     "request", "merge",    "branch",   "commit",   "deploy",
        "docker",   "compose",  "network", "proxy",    "dns",      "firewall", "vpn"};
    static const char *questions[] = {"How to", "How do I", "Why does", "Can I",
                                      "What is the best way to"};
    static const char *questionSites[] = {"Stack Overflow", "Super User", "Ask Ubuntu",
                                          "Server Fault", "Unix & Linux Stack Exchange"};
    static const char *documents[] = {"Release Notes", "Changelog",       "Documentation",
                                      "Download",      "Migration Guide", "API Reference"};
    static const char *camel[] = {"NewsFeed",      "GameMode",      "MyProject",   "DevTools",
                                  "HomeAssistant", "OpenStreetMap", "LibreOffice", "QtCreator",
                                  "VSCode",        "PostgreSQL",    "TypeScript",  "WebAssembly"};
    static const char16_t *foreign[] = {u"Caf\u00E9",
                                        u"Cre\u0300me bru\u0302le\u0301e",
                                        u"M\u00FCller",
                                        u"nai\u0308ve",
                                        u"Stra\u00DFe",
                                        u"\u0130stanbul",
                                        u"\u6771\u4EAC",
                                        u"\u0395\u03BB\u03BB\u03B7\u03BD\u03B9\u03BA\u03AC",
                                        u"\U0001F44D\U0001F3FD",
                                        u"\U0001F680 launch",
                                        u"\u00C9cole",
                                        u"\u041C\u043E\u0441\u043A\u0432\u0430",
                                        u"\u01C4ungla"};
    std::mt19937 random(1234567);
    auto pick = [&random](const auto &list) {
        return list[random() % (sizeof(list) / sizeof(list[0]))];
    };
    auto latin = [](const char *text) { return QString::fromLatin1(text); };
    auto title = [&](int wordCount) {
        QString text;
        for (int w = 0; w < wordCount; ++w) {
            QString word = latin(pick(words));
            if (w == 0 || random() % 4 == 0)
                word[0] = word[0].toUpper();
            text += (w ? u" "_s : QString()) + word;
        }
        return text;
    };
    QStringList names;
    names.reserve(count);
    for (int i = 0; i < count; ++i) {
        QString name;
        switch (random() % 8) {
        case 0:
            name = latin(pick(sites)) + u" - "_s + title(2 + int(random() % 4));
            break;
        case 1:
            name = title(3 + int(random() % 5)) + u" | "_s + latin(pick(sites));
            break;
        case 2:
            name = latin(pick(questions)) + u' ' + title(2 + int(random() % 3)) + u" in "_s +
                   latin(pick(camel)) + u" - "_s + latin(pick(questionSites));
            break;
        case 3:
            name = latin(pick(words)) + u"-"_s + latin(pick(words)) + u"/"_s + latin(pick(camel)) +
                   u": "_s + title(3);
            break;
        case 4:
            name = u"Issue #%1 - "_s.arg(random() % 40000) + latin(pick(words)) + u"/"_s +
                   latin(pick(words));
            break;
        case 5:
            name = latin(pick(camel)) + u" %1.%2 "_s.arg(random() % 20).arg(random() % 10) +
                   latin(pick(documents));
            break;
        case 6:
            name = title(2 + int(random() % 3)) + u" (%1)"_s.arg(1990 + random() % 36);
            break;
        default:
            name = latin(pick(camel)) + u"_"_s + latin(pick(words)) + u"_v"_s +
                   QString::number(random() % 100);
            break;
        }
        if (random() % 20 == 0)
            name = (random() % 2 ? QString::fromUtf16(pick(foreign)) + u" "_s + name
                                 : name + u" "_s + QString::fromUtf16(pick(foreign)));
        names.push_back(name);
    }
    return names;
}

const QStringList defaultQueries = {
    u"github"_s,         u"rust book"_s, u"news"_s,          u"mail"_s,
    u"stack overflow"_s, u"nf"_s,        u"issue 12"_s,      u"linux kernel"_s,
    u"react hooks"_s,    u"caf\u00E9"_s, u"docs api"_s,      u"gh pr"_s,
    u"qtcreator"_s,      u"xyzzy"_s,     u"release notes"_s, u"how to build"_s};

struct Prepared
{
    QList<IndexedFile> files;
    double prepareMs = 0;
};

// The records as the scan makes them, announced as one batch as the scan announces its new
// ones; only the preparing is timed, since the scan computes the collation key for its own
// sort anyway.
Prepared prepare(const QStringList &names)
{
    std::vector<QByteArray> keys;
    keys.reserve(size_t(names.size()));
    for (const QString &name : names)
        keys.push_back(Collation::sortKey(name));
    Prepared result;
    result.files.reserve(names.size());
    for (qsizetype i = 0; i < names.size(); ++i)
        result.files.push_back(
            {QUrl::fromLocalFile(u"/shortcuts/"_s + QString::number(i)), names[i], nullptr});
    const Clock::time_point start = Clock::now();
    detail::NameBatch batch(size_t(names.size()));
    for (qsizetype i = 0; i < names.size(); ++i)
        result.files[i].prepared = batch.prepare(names[i], std::move(keys[size_t(i)]));
    result.prepareMs = millisecondsSince(start);
    return result;
}

struct Latencies
{
    std::vector<double> samples;
    size_t hits = 0;

    double quantile(double q) const
    {
        std::vector<double> sorted = samples;
        std::sort(sorted.begin(), sorted.end());
        if (sorted.empty())
            return 0;
        return sorted[std::min(sorted.size() - 1, size_t(q * double(sorted.size() - 1) + 0.5))];
    }
    double max() const
    {
        return samples.empty() ? 0 : *std::max_element(samples.begin(), samples.end());
    }
};

// Types the query one character at a time, searching after each, as a panel does with its
// session.
void typeQuery(const QList<IndexedFile> &files, const QString &query, SearchSession &session,
               Latencies &latencies)
{
    for (qsizetype length = 1; length <= query.size(); ++length) {
        if (length < query.size() && query[length - 1].isHighSurrogate())
            continue;
        const QString typed = query.left(length);
        const Clock::time_point start = Clock::now();
        const QList<ScoredFile> results = FileIndex::search(typed, files, launcherLimit, session);
        latencies.samples.push_back(millisecondsSince(start));
        latencies.hits += size_t(results.size());
    }
}

int runTable()
{
    std::printf("%8s %11s %10s %10s %9s %9s\n", "names", "prepare_ms", "keystrokes", "median_ms",
                "p99_ms", "max_ms");
    for (const int count : {1000, 10000, 100000}) {
        const Prepared prepared = prepare(generatedCorpus(count));
        Latencies latencies;
        // One untimed round first, so that lazily built state (ICU data) is not counted.
        SearchSession session;
        Latencies warmup;
        typeQuery(prepared.files, defaultQueries.front(), session, warmup);
        for (const QString &query : defaultQueries)
            typeQuery(prepared.files, query, session, latencies);
        std::printf("%8d %11.2f %10zu %10.3f %9.3f %9.3f\n", count, prepared.prepareMs,
                    latencies.samples.size(), latencies.quantile(0.5), latencies.quantile(0.99),
                    latencies.max());
    }
    return 0;
}

int runKeystrokes(const char *namesPath, int queryCount, char **queries)
{
    QFile file(QString::fromLocal8Bit(namesPath));
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "pindle-bench: cannot read %s\n", namesPath);
        return 1;
    }
    QStringList names = QString::fromUtf8(file.readAll()).split(u'\n');
    if (!names.isEmpty() && names.back().isEmpty())
        names.pop_back();
    const Prepared prepared = prepare(names);
    SearchSession session;
    Latencies warmup;
    typeQuery(prepared.files, QString::fromLocal8Bit(queries[0]), session, warmup);
    Latencies all;
    for (int q = 0; q < queryCount; ++q) {
        const QString query = QString::fromLocal8Bit(queries[q]);
        Latencies one;
        typeQuery(prepared.files, query, session, one);
        std::printf(
            "query=\"%s\" keystrokes=%zu median_ms=%.3f max_ms=%.3f results_last=%zu\n", queries[q],
            one.samples.size(), one.quantile(0.5), one.max(),
            size_t(FileIndex::search(query, prepared.files, launcherLimit, session).size()));
        all.samples.insert(all.samples.end(), one.samples.begin(), one.samples.end());
    }
    std::printf("keystrokes=%zu median_ms=%.3f p99_ms=%.3f max_ms=%.3f prepare_ms=%.2f\n",
                all.samples.size(), all.quantile(0.5), all.quantile(0.99), all.max(),
                prepared.prepareMs);
    return 0;
}

int usage()
{
    std::fprintf(stderr, "usage: pindle-bench [--filter QUERY | --keystrokes NAMES_FILE QUERY... | "
                         "--corpus N]\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 1)
        return runTable();
    const std::string_view mode = argv[1];
    if (mode == "--keystrokes" && argc >= 4)
        return runKeystrokes(argv[2], argc - 3, argv + 3);
    if (mode == "--corpus" && argc == 3) {
        const QByteArray text = generatedCorpus(std::atoi(argv[2])).join(u'\n').toUtf8() + '\n';
        std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
        return 0;
    }
    return usage();
}
