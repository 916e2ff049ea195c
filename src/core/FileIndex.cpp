#include "core/FileIndex.h"

#include "core/Collation.h"
#include "core/SearchIndex.h"
#include "core/ShortcutFormat.h"
#include "core/ShortcutURL.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace pindle::FileIndex {
namespace {

// Shortcut files are shown without these extensions (compared lower-cased).
bool isStrippedExtension(const QString &extension)
{
    return extension == u"webloc" || extension == u"url" || extension == u"inetloc";
}

QString displayNameOf(const QString &fileName)
{
    if (!isStrippedExtension(ShortcutFormat::lowerExtension(fileName)))
        return fileName;
    return fileName.first(fileName.lastIndexOf(u'.'));
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

struct Listed
{
    QUrl url;
    QString displayName;
    QByteArray sortKey;
};

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

QList<IndexedFile> scan()
{
    ShortcutURL::clearCaches();

    const QString folderPath = directory().toLocalFile();
    const int fd = ::open(QFile::encodeName(folderPath).constData(),
                          O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return {};
    const std::unique_ptr<DIR, DirectoryCloser> listing(::fdopendir(fd));
    if (!listing) {
        ::close(fd);
        return {};
    }

    const QString prefix = folderPath.endsWith(u'/') ? folderPath : folderPath + u'/';
    std::vector<Listed> listed;
    for (;;) {
        errno = 0;
        const dirent *entry = ::readdir(listing.get());
        if (entry == nullptr) {
            if (errno != 0)
                return {};
            break;
        }
        // Hidden names, and "." and "..".
        if (entry->d_name[0] == '.' || !isRegularFile(::dirfd(listing.get()), *entry))
            continue;
        const QString name = QFile::decodeName(entry->d_name);
        QString displayName = displayNameOf(name);
        QByteArray sortKey = Collation::sortKey(displayName);
        listed.push_back(
            {QUrl::fromLocalFile(prefix + name), std::move(displayName), std::move(sortKey)});
    }

    std::ranges::stable_sort(listed, std::less<>(), &Listed::sortKey);

    QList<IndexedFile> files;
    files.reserve(qsizetype(listed.size()));
    for (Listed &entry : listed) {
        auto prepared = detail::prepareName(entry.displayName, std::move(entry.sortKey));
        files.append({std::move(entry.url), std::move(entry.displayName), std::move(prepared)});
    }
    return files;
}

} // namespace pindle::FileIndex
