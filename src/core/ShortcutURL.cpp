#include "core/ShortcutURL.h"

#include "core/FileType.h"
#include "core/LocalPath.h"
#include "core/ShortcutFormat.h"

#include <QHash>
#include <QSet>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace pindle::ShortcutURL {
namespace {

// Caches of at least this many targets are freed on a thread of their own when cleared.
constexpr qsizetype leastFreedBeside = 4096;

// Keyed by the file URL, which for local files stands for its path: the scan's records share
// their URL with the cache, so neither a lookup nor emptying the cache copies or frees a path.
// An absent target is cached too, so a file that can't be read is not tried again before the
// next scan. The scan forgets the answers for the files its folder watch saw change, and those
// in `unwatched`, whose changes the watch can't see. Main thread only.
struct Caches
{
    QHash<QUrl, std::optional<QString>> targets;
    QHash<QUrl, QString> subtitles;
    QSet<QUrl> unwatched;
    // What was forgotten since markForgetting(), while a reader's answers are under way: they
    // may have been read before the change.
    bool isMarking = false;
    QSet<QUrl> forgottenSinceMark;
    bool isClearedSinceMark = false;
    // A file of the reader's cached another way while it read: its answer was left out.
    bool isPreemptedSinceMark = false;
    // The targets of one list, in its order, once all of them are cached; dropped when anything
    // is forgotten. The creator's list compares them all on every showing, and looking each up
    // by its URL costs a hundred times more.
    QList<IndexedFile> listed;
    std::vector<std::optional<QString>> listedTargets;
    bool hasListedTargets = false;
};

Caches &caches()
{
    static Caches instance;
    return instance;
}

// The file's bytes. A name that is not UTF-8 reads with replacement characters in the URL's
// text; only the URL's bytes name that file.
std::optional<QByteArrayView> readShortcut(const QUrl &file, const QString &path,
                                           ShortcutFormat::FileBytes &storage)
{
    if (!path.contains(QChar::ReplacementCharacter))
        return ShortcutFormat::readFile(path, storage);
    return ShortcutFormat::readFile(LocalPath::nativePath(file).constData(), storage);
}

// No reader falls back on the other: the extension alone decides the format.
std::optional<QString> shortcutTarget(const QUrl &file)
{
    const QString path = file.toLocalFile();
    const QStringView fileName = QStringView(path).sliced(path.lastIndexOf(u'/') + 1);
    using ShortcutFormat::hasExtension;
    const bool isPlist =
        hasExtension(fileName, "webloc"_L1) || hasExtension(fileName, "inetloc"_L1);
    if (!isPlist && !hasExtension(fileName, "url"_L1))
        return std::nullopt;
    ShortcutFormat::FileBytes storage;
    const std::optional<QByteArrayView> bytes = readShortcut(file, path, storage);
    if (!bytes)
        return std::nullopt;
    return isPlist ? ShortcutFormat::plistTarget(*bytes) : ShortcutFormat::iniTarget(*bytes);
}

// A plain file with no other name: reached through a link, or written through another name,
// it could change without an event on the shortcut folder. A file that is not there is watched:
// its creation is such an event.
bool isWatched(const QByteArray &nativePath)
{
    struct stat info = {};
    if (::lstat(nativePath.constData(), &info) != 0)
        return errno == ENOENT;
    return S_ISREG(info.st_mode) && info.st_nlink == 1;
}

detail::ReadTarget readTarget(const QUrl &file)
{
    const bool watched = isWatched(LocalPath::nativePath(file));
    return {shortcutTarget(file), watched};
}

void store(const QUrl &file, detail::ReadTarget read)
{
    Caches &cache = caches();
    cache.targets.insert(file, std::move(read.target));
    if (!read.isWatched)
        cache.unwatched.insert(file);
}

// What the file manager calls the file's kind; empty for a file that is not there.
QString typeDescription(const QUrl &file)
{
    const std::optional<QMimeType> type = FileType::ofNativePath(LocalPath::nativePath(file));
    return type ? type->comment() : QString();
}

} // namespace

std::optional<QString> target(const QUrl &file)
{
    auto &targets = caches().targets;
    if (const auto cached = targets.constFind(file); cached != targets.cend())
        return *cached;
    detail::ReadTarget read = readTarget(file);
    std::optional<QString> address = read.target;
    store(file, std::move(read));
    return address;
}

QString subtitle(const QUrl &file)
{
    auto &subtitles = caches().subtitles;
    if (const auto cached = subtitles.constFind(file); cached != subtitles.cend())
        return *cached;
    const std::optional<QString> address = target(file);
    QString text = address ? *address : typeDescription(file);
    subtitles.insert(file, text);
    return text;
}

void clearCaches()
{
    const bool isMarking = caches().isMarking;
    auto cleared = std::make_unique<Caches>(std::exchange(caches(), Caches()));
    caches().isMarking = isMarking;
    caches().isClearedSinceMark = true;
    // A large folder's answers take tens of milliseconds to free, which a thread of their own
    // does beside the interface. Nothing else holds the emptied containers, and the URLs and
    // strings they share with the scanned lists count their users atomically.
    if (cleared->targets.size() >= leastFreedBeside) {
        try {
            std::thread([freed = std::move(cleared)] {}).detach();
        } catch (const std::system_error &) {
            // No thread to be had: they are freed here.
        }
    }
}

} // namespace pindle::ShortcutURL

namespace pindle::detail {

void cacheTargets(const QList<IndexedFile> &files)
{
    auto &targets = ShortcutURL::caches().targets;
    std::vector<qsizetype> missing;
    missing.reserve(size_t(files.size()));
    // Just after a scan the cache is empty, and looking every file up would be wasted.
    for (qsizetype i = 0; i < files.size(); ++i) {
        if (targets.isEmpty() || !targets.contains(files[i].url))
            missing.push_back(i);
    }
    // Below this, a helper thread costs about as much as it saves.
    constexpr size_t leastForHelper = 64;
    if (missing.size() < leastForHelper)
        return;

    // Reading is mostly system calls, which the second core halves; the files are handed out in
    // small runs so that a core busy with other work takes fewer of them.
    constexpr size_t run = 32;
    std::vector<ReadTarget> read(missing.size());
    std::atomic<size_t> next = 0;
    const auto work = [&] {
        for (size_t from; (from = next.fetch_add(run)) < missing.size();) {
            for (size_t k = from; k < std::min(from + run, missing.size()); ++k)
                read[k] = ShortcutURL::readTarget(files[missing[k]].url);
        }
    };
    std::optional<std::thread> helper;
    try {
        helper.emplace(work);
    } catch (const std::system_error &) {
        // No thread to be had: this one reads them all.
    }
    work();
    if (helper)
        helper->join();

    targets.reserve(targets.size() + qsizetype(missing.size()));
    for (size_t k = 0; k < missing.size(); ++k)
        ShortcutURL::store(files[missing[k]].url, std::move(read[k]));
}

ReadTarget readTarget(const QUrl &file)
{
    return ShortcutURL::readTarget(file);
}

namespace {

void dropListedTargets()
{
    auto &cache = ShortcutURL::caches();
    cache.listed = {};
    cache.listedTargets = {};
    cache.hasListedTargets = false;
}

} // namespace

void forgetFile(const QUrl &file)
{
    auto &cache = ShortcutURL::caches();
    dropListedTargets();
    cache.targets.remove(file);
    cache.subtitles.remove(file);
    cache.unwatched.remove(file);
    if (cache.isMarking)
        cache.forgottenSinceMark.insert(file);
}

void forgetUnwatchedFiles()
{
    auto &cache = ShortcutURL::caches();
    if (!cache.unwatched.isEmpty())
        dropListedTargets();
    for (const QUrl &file : std::as_const(cache.unwatched)) {
        cache.targets.remove(file);
        cache.subtitles.remove(file);
        if (cache.isMarking)
            cache.forgottenSinceMark.insert(file);
    }
    cache.unwatched.clear();
}

bool isTargetCached(const QUrl &file)
{
    return ShortcutURL::caches().targets.contains(file);
}

bool hasListedTargets(const QList<IndexedFile> &files)
{
    const auto &cache = ShortcutURL::caches();
    return cache.hasListedTargets && cache.listed.isSharedWith(files) &&
           cache.listed.size() == files.size();
}

const std::vector<std::optional<QString>> *cachedTargets(const QList<IndexedFile> &files)
{
    auto &cache = ShortcutURL::caches();
    if (hasListedTargets(files))
        return &cache.listedTargets;
    std::vector<std::optional<QString>> targets;
    targets.reserve(size_t(files.size()));
    for (const IndexedFile &file : files) {
        const auto found = cache.targets.constFind(file.url);
        if (found == cache.targets.cend())
            return nullptr;
        targets.push_back(*found);
    }
    cache.listed = files;
    cache.listedTargets = std::move(targets);
    cache.hasListedTargets = true;
    return &cache.listedTargets;
}

std::vector<std::optional<QString>> knownTargets(const QList<IndexedFile> &files,
                                                 std::vector<qsizetype> &missing)
{
    const auto &targets = ShortcutURL::caches().targets;
    std::vector<std::optional<QString>> known(size_t(files.size()));
    for (qsizetype i = 0; i < files.size(); ++i) {
        const auto found = targets.isEmpty() ? targets.cend() : targets.constFind(files[i].url);
        if (found == targets.cend())
            missing.push_back(i);
        else
            known[size_t(i)] = *found;
    }
    return known;
}

void keepListedTargets(const QList<IndexedFile> &files, std::vector<std::optional<QString>> targets)
{
    auto &cache = ShortcutURL::caches();
    cache.listed = files;
    cache.listedTargets = std::move(targets);
    cache.hasListedTargets = true;
}

void markForgetting()
{
    auto &cache = ShortcutURL::caches();
    cache.forgottenSinceMark.clear();
    cache.isClearedSinceMark = false;
    cache.isPreemptedSinceMark = false;
    cache.isMarking = true;
}

bool storeReadTargets(const QList<QUrl> &files, std::vector<ReadTarget> &read)
{
    return storeReadTargets(files, read, 0, files.size());
}

bool storeReadTargets(const QList<QUrl> &files, std::vector<ReadTarget> &read, qsizetype from,
                      qsizetype to)
{
    auto &cache = ShortcutURL::caches();
    if (!cache.isClearedSinceMark) {
        if (from == 0)
            cache.targets.reserve(cache.targets.size() + files.size());
        for (qsizetype k = from; k < to; ++k) {
            const QUrl &file = files[k];
            if (cache.forgottenSinceMark.contains(file))
                continue;
            if (cache.targets.contains(file))
                cache.isPreemptedSinceMark = true;
            else
                ShortcutURL::store(file, std::move(read[size_t(k)]));
        }
    }
    if (to < files.size())
        return false;
    const bool isWhole = !cache.isClearedSinceMark && !cache.isPreemptedSinceMark &&
                         cache.forgottenSinceMark.isEmpty();
    cache.forgottenSinceMark.clear();
    cache.isMarking = false;
    return isWhole;
}

} // namespace pindle::detail
