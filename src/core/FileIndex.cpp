#include "core/FileIndex.h"

#include "core/Collation.h"
#include "core/FolderWatch.h"
#include "core/LocalPath.h"
#include "core/SearchIndex.h"
#include "core/ShortcutFormat.h"
#include "core/ShortcutURL.h"

#include <QDir>
#include <QFile>
#include <QStringDecoder>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace pindle::FileIndex {
namespace {

// A scan given up while it prepares names notices within this many of them.
constexpr size_t givenUpCheckInterval = 1024;

// Shortcut files are shown without these extensions (compared lower-cased).
constexpr QLatin1StringView strippedExtensions[] = {"webloc"_L1, "url"_L1, "inetloc"_L1};

QString displayNameOf(QStringView fileName)
{
    for (QLatin1StringView extension : strippedExtensions) {
        if (ShortcutFormat::hasExtension(fileName, extension))
            return fileName.first(fileName.size() - extension.size() - 1).toString();
    }
    return fileName.toString();
}

// folder + name in one allocation. Bytes that are not UTF-8 become replacement characters, as
// QFile::decodeName makes them, and isExact turns false: such a name is listed as well as it
// can be shown, and its URL must be made from its bytes. A leading byte-order mark is part of
// the name.
QString pathOf(QStringView folder, const char *name, bool &isExact)
{
    const QByteArrayView bytes(name);
    QString path(folder.size() + bytes.size(), Qt::Uninitialized);
    std::copy(folder.begin(), folder.end(), path.begin());
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    const QChar *end = decoder.appendToBuffer(path.data() + folder.size(), bytes);
    path.truncate(end - path.constData());
    isExact = !decoder.hasError();
    return path;
}

// QUrl::fromLocalFile(path) for an absolute path. That parses the path as a decoded one, which
// first doubles up every '%' with a string search; a path without one reads the same as it
// stands, and the search was a tenth of a scan.
QUrl fileUrl(const QString &path)
{
    if (!path.startsWith(u'/') || path.startsWith(u"//") || path.contains(u'%'))
        return QUrl::fromLocalFile(path);
    QUrl url;
    url.setScheme(u"file"_s);
    url.setPath(path, QUrl::TolerantMode);
    return url;
}

// The URL of a listed name: made from its decoded path where that is exact, else from its bytes.
QUrl urlOf(const QString &prefix, const QString &path, bool isExact, const char *name)
{
    return isExact ? fileUrl(path) : LocalPath::fileUrl(QFile::encodeName(prefix) + name);
}

struct DirectoryCloser
{
    void operator()(DIR *listing) const { ::closedir(listing); }
};

// The listing tells most file systems' entry types for free; only entries of unknown type and
// symbolic links, which count as what they point at, cost a stat.
bool isRegularFile(int folder, const dirent &entry)
{
    if (entry.d_type == DT_REG)
        return true;
    if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK)
        return false;
    struct stat info = {};
    return ::fstatat(folder, entry.d_name, &info, 0) == 0 && S_ISREG(info.st_mode);
}

// The sort keys of all entries are kept in one buffer, which saves an allocation per entry.
struct Listed
{
    IndexedFile record;
    bool isNew; // made by this scan, and not yet prepared for searching
    size_t keyAt;
    size_t keySize;
};

// The last scan's names and records in listing order. A record depends on nothing but its
// entry's name, and a folder that has not changed lists its entries in the same order, so the
// next scan takes the record of an entry found at the same place under the same name instead of
// building it again: rescans are cheap, and the two panels' lists share their records.
class PreviousScan
{
public:
    // Names are added as they are listed, and their records once all are made.
    void addName(std::string_view name) { m_names.append(name.data(), name.size() + 1); }
    void setRecords(std::vector<IndexedFile> records) { m_records = std::move(records); }
    size_t size() const { return m_records.size(); }

    // The record listed under `name`, looked for first at the same position.
    const IndexedFile *find(std::string_view name, size_t position)
    {
        if (position == m_positionsChecked && position < m_records.size()) {
            const std::string_view there(m_names.c_str() + m_nameAt);
            m_nameAt += there.size() + 1;
            ++m_positionsChecked;
            if (there == name)
                return usable(m_records[position]);
        }
        // Something changed before this entry: look the name up instead.
        if (m_byName.empty() && !m_records.empty()) {
            m_byName.reserve(m_records.size());
            for (size_t at = 0, i = 0; i < m_records.size(); ++i) {
                const std::string_view listed(m_names.c_str() + at);
                m_byName.emplace(listed, i);
                at += listed.size() + 1;
            }
        }
        const auto found = m_byName.find(name);
        return found == m_byName.end() ? nullptr : usable(m_records[found->second]);
    }

private:
    static const IndexedFile *usable(const IndexedFile &record)
    {
        return record.prepared ? &record : nullptr;
    }

    std::string m_names; // each followed by a zero byte
    std::vector<IndexedFile> m_records;
    size_t m_nameAt = 0;
    size_t m_positionsChecked = 0;
    std::unordered_map<std::string_view, size_t> m_byName;
};

std::mutex previousScanMutex;

// The list the last scan returned, and the watch that tells whether it still holds. While
// nothing has changed, a scan returns that list again, and the caches of ShortcutURL keep all
// but the answers for the files that changed.
struct WatchedFolder
{
    detail::FolderWatch watch;
    QList<IndexedFile> files;
    bool isListed = false;
    // False when the folder holds links (or entries of unknown type): what they point at may
    // change, and a regular file become a folder or back, with no event on this folder.
    bool isSettled = false;
    // Counts the scans started, so that one that ends after a later one began leaves the
    // later one's list in place.
    quint64 generation = 0;
};

// Held for the main-thread steps of a scan and for each use of the watch, never for a listing.
std::mutex watchedFolderMutex;

WatchedFolder &watchedFolder()
{
    static WatchedFolder instance;
    return instance;
}

PreviousScan &previousScan()
{
    static PreviousScan instance;
    return instance;
}

// The sort compares the keys' first sixteen bytes as two numbers and looks further only on a
// tie, which names that begin alike make common.
struct SortEntry
{
    quint64 keyHead;
    quint64 keyNext;
    quint32 index;
};

quint64 bigEndianAt(std::string_view key, size_t from)
{
    quint64 value = 0;
    for (size_t i = from; i < from + 8; ++i)
        value = (value << 8) | (i < key.size() ? quint8(key[i]) : 0);
    return value;
}

QString folderPrefix()
{
    const QString folderPath = directory().toLocalFile();
    return folderPath.endsWith(u'/') ? folderPath : folderPath + u'/';
}

} // namespace

const QUrl &directory()
{
    static const QUrl url =
        QUrl::fromLocalFile(QDir(QDir::homePath()).filePath(QStringLiteral("conflocal/urls")));
    return url;
}

bool directoryExists()
{
    struct stat info = {};
    return ::stat(QFile::encodeName(directory().toLocalFile()).constData(), &info) == 0 &&
           S_ISDIR(info.st_mode);
}

bool startScan(FolderListing &listing)
{
    const std::lock_guard watchLock(watchedFolderMutex);
    WatchedFolder &watched = watchedFolder();
    listing.generation = ++watched.generation;
    const QString prefix = folderPrefix();

    // The events queued so far tell of every change made before this moment.
    const detail::FolderChanges changes = watched.watch.takeChanges();
    if (!changes.isComplete) {
        ShortcutURL::clearCaches();
    } else {
        for (const std::string &name : changes.names) {
            bool isExact = true;
            const QString path = pathOf(prefix, name.c_str(), isExact);
            detail::forgetFile(urlOf(prefix, path, isExact, name.c_str()));
        }
        detail::forgetUnwatchedFiles();
        if (changes.names.empty() && watched.isListed && watched.isSettled) {
            listing.files = watched.files;
            listing.isListed = true;
            listing.isSettled = true;
            return true;
        }
    }
    watched.files = {};
    watched.isListed = false;
    return false;
}

void listFolder(FolderListing &listing, const std::atomic<bool> *isCancelled)
{
    listing.files = {};
    listing.isListed = false;
    const QString folderPath = directory().toLocalFile();
    const QString prefix = folderPrefix();
    const auto stopWatching = [] {
        const std::lock_guard watchLock(watchedFolderMutex);
        watchedFolder().watch.stop();
    };

    const QByteArray encodedPath = QFile::encodeName(folderPath);
    const int fd = ::open(encodedPath.constData(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        stopWatching();
        return;
    }
    const std::unique_ptr<DIR, DirectoryCloser> listingHandle(::fdopendir(fd));
    if (!listingHandle) {
        ::close(fd);
        stopWatching();
        return;
    }
    // Set before the listing, so that a change made while it runs is seen at the next scan.
    int givenUpWatch = -1;
    {
        const std::lock_guard watchLock(watchedFolderMutex);
        givenUpWatch = watchedFolder().watch.takeGivenUp();
        watchedFolder().watch.watch(fd, encodedPath);
    }
    if (givenUpWatch >= 0)
        ::close(givenUpWatch);
    bool isSettled = true;

    // Taken out for the length of the listing, so that scans on other threads start afresh
    // rather than wait.
    PreviousScan before;
    {
        const std::lock_guard lock(previousScanMutex);
        before = std::exchange(previousScan(), {});
    }
    PreviousScan now;

    std::vector<Listed> listed;
    listed.reserve(std::max<size_t>(256, before.size()));
    std::string keys;
    keys.reserve(8192);
    // A scan given up leaves the last scan's records to the one that follows.
    const auto isGivenUp = [&] {
        if (isCancelled == nullptr || !*isCancelled)
            return false;
        const std::lock_guard lock(previousScanMutex);
        if (previousScan().size() == 0)
            previousScan() = std::move(before);
        return true;
    };
    for (;;) {
        if (isGivenUp())
            return;
        errno = 0;
        const dirent *entry = ::readdir(listingHandle.get());
        if (entry == nullptr) {
            if (errno != 0) {
                stopWatching();
                return;
            }
            break;
        }
        // Hidden names, and "." and "..".
        if (entry->d_name[0] == '.')
            continue;
        if (entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN)
            isSettled = false;
        if (!isRegularFile(::dirfd(listingHandle.get()), *entry))
            continue;
        const std::string_view name(entry->d_name);
        now.addName(name);
        const size_t position = listed.size();
        const size_t keyAt = keys.size();
        if (const IndexedFile *record = before.find(name, position)) {
            const QByteArray &key = record->prepared->collationKey;
            keys.append(key.constData(), size_t(key.size()));
            listed.push_back({*record, false, keyAt, size_t(key.size())});
            continue;
        }
        bool isExact = true;
        const QString path = pathOf(prefix, entry->d_name, isExact);
        QString displayName = displayNameOf(QStringView(path).sliced(prefix.size()));
        const size_t keySize = Collation::appendSortKey(displayName, keys);
        QUrl url = urlOf(prefix, path, isExact, entry->d_name);
        listed.push_back({{std::move(url), std::move(displayName)}, true, keyAt, keySize});
    }

    // Sorting positions rather than the records saves moving URLs and strings around.
    const auto keyOf = [&](const Listed &entry) {
        return std::string_view(keys).substr(entry.keyAt, entry.keySize);
    };
    std::vector<SortEntry> order;
    order.reserve(listed.size());
    for (quint32 i = 0; i < listed.size(); ++i) {
        const std::string_view key = keyOf(listed[i]);
        order.push_back({bigEndianAt(key, 0), bigEndianAt(key, 8), i});
    }
    std::ranges::stable_sort(order, [&](const SortEntry &a, const SortEntry &b) {
        if (a.keyHead != b.keyHead)
            return a.keyHead < b.keyHead;
        if (a.keyNext != b.keyNext)
            return a.keyNext < b.keyNext;
        // Compared as unsigned bytes, as memcmp does.
        return keyOf(listed[a.index]) < keyOf(listed[b.index]);
    });

    detail::NameBatch batch(size_t(std::ranges::count_if(listed, &Listed::isNew)));
    QList<IndexedFile> files;
    files.reserve(qsizetype(listed.size()));
    // The sort has scattered the names over memory: each is asked for some entries ahead, so
    // that it is at hand when it is prepared.
    constexpr size_t lookAhead = 8;
    for (size_t i = 0; i < order.size(); ++i) {
        if (i % givenUpCheckInterval == 0 && isGivenUp())
            return;
        if (i + lookAhead < order.size())
            __builtin_prefetch(listed[order[i + lookAhead].index].record.displayName.constData());
        Listed &entry = listed[order[i].index];
        if (entry.isNew) {
            const std::string_view key = keyOf(entry);
            entry.record.prepared = batch.prepare(
                entry.record.displayName, QByteArrayView(key.data(), qsizetype(key.size())));
        }
        files.append(entry.record);
    }
    std::vector<IndexedFile> inListingOrder;
    inListingOrder.reserve(listed.size());
    for (Listed &entry : listed)
        inListingOrder.push_back(std::move(entry.record));
    now.setRecords(std::move(inListingOrder));
    {
        const std::lock_guard lock(previousScanMutex);
        previousScan() = std::move(now);
    }
    listing.files = std::move(files);
    listing.isListed = true;
    listing.isSettled = isSettled;
}

QList<IndexedFile> finishScan(FolderListing &&listing)
{
    const std::lock_guard watchLock(watchedFolderMutex);
    WatchedFolder &watched = watchedFolder();
    // A scan started since has taken the changes this one may have missed: its list is the
    // one to keep.
    if (listing.isListed && listing.generation == watched.generation) {
        watched.files = listing.files;
        watched.isListed = true;
        watched.isSettled = listing.isSettled;
    }
    return std::move(listing.files);
}

QList<IndexedFile> scan()
{
    FolderListing listing;
    if (startScan(listing))
        return std::move(listing.files);
    listFolder(listing, nullptr);
    return finishScan(std::move(listing));
}

bool isLarge(qint64 mostBytes)
{
    struct stat info = {};
    return ::stat(QFile::encodeName(directory().toLocalFile()).constData(), &info) == 0 &&
           S_ISDIR(info.st_mode) && info.st_size > mostBytes;
}

} // namespace pindle::FileIndex

namespace pindle::detail {

void forgetScannedRecords()
{
    {
        const std::lock_guard lock(FileIndex::watchedFolderMutex);
        FileIndex::WatchedFolder &watched = FileIndex::watchedFolder();
        watched.watch.stop();
        watched.files = {};
        watched.isListed = false;
    }
    const std::lock_guard lock(FileIndex::previousScanMutex);
    FileIndex::previousScan() = {};
}

} // namespace pindle::detail
