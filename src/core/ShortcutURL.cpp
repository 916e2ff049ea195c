#include "core/ShortcutURL.h"

#include "core/FileType.h"
#include "core/LocalPath.h"
#include "core/SearchIndex.h"
#include "core/ShortcutFormat.h"

#include <QHash>

#include <algorithm>
#include <atomic>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace pindle::ShortcutURL {
namespace {

// Keyed by the file URL, which for local files stands for its path: the scan's records share
// their URL with the cache, so neither a lookup nor emptying the cache copies or frees a path.
// An absent target is cached too, so a file that can't be read is not tried again before the
// next scan.
struct Caches
{
    QHash<QUrl, std::optional<QString>> targets;
    QHash<QUrl, QString> subtitles;
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
    std::optional<QString> address = shortcutTarget(file);
    targets.insert(file, address);
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
    caches() = Caches();
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
    std::vector<std::optional<QString>> read(missing.size());
    std::atomic<size_t> next = 0;
    const auto work = [&] {
        for (size_t from; (from = next.fetch_add(run)) < missing.size();) {
            for (size_t k = from; k < std::min(from + run, missing.size()); ++k)
                read[k] = ShortcutURL::shortcutTarget(files[missing[k]].url);
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
        targets.insert(files[missing[k]].url, std::move(read[k]));
}

} // namespace pindle::detail
