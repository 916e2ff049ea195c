#include "core/FileType.h"

#include <QByteArray>
#include <QFile>
#include <QMimeDatabase>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pindle::FileType {
namespace {

// As much of a file's start as the type rules look at in practice.
constexpr qsizetype sniffedBytes = 16 * 1024;

QMimeType ofSpecialFile(mode_t mode)
{
    const char *name = S_ISDIR(mode)    ? "inode/directory"
                       : S_ISFIFO(mode) ? "inode/fifo"
                       : S_ISCHR(mode)  ? "inode/chardevice"
                       : S_ISBLK(mode)  ? "inode/blockdevice"
                       : S_ISSOCK(mode) ? "inode/socket"
                                        : "application/octet-stream";
    return QMimeDatabase().mimeTypeForName(QString::fromLatin1(name));
}

} // namespace

std::optional<QMimeType> of(const QString &path)
{
    return ofNativePath(QFile::encodeName(path));
}

std::optional<QMimeType> ofNativePath(const QByteArray &nativePath)
{
    // Only the name's extension matters to the type rules, which any spelling of it keeps.
    const QString path = QFile::decodeName(nativePath);
    struct stat info = {};
    if (::stat(nativePath.constData(), &info) != 0)
        return std::nullopt;
    if (!S_ISREG(info.st_mode))
        return ofSpecialFile(info.st_mode);

    // The file may have been swapped since the look above: only what the descriptor shows counts.
    const int fd = ::open(nativePath.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    const QMimeDatabase types;
    if (fd < 0)
        return types.mimeTypeForFile(path, QMimeDatabase::MatchExtension);
    QByteArray head;
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
        head.resize(sniffedBytes);
        qsizetype filled = 0;
        while (filled < head.size()) {
            const ssize_t count = ::read(fd, head.data() + filled, size_t(head.size() - filled));
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                break;
            filled += count;
        }
        head.truncate(filled);
    }
    ::close(fd);
    if (!S_ISREG(info.st_mode))
        return ofSpecialFile(info.st_mode);
    return types.mimeTypeForFileNameAndData(path, head);
}

} // namespace pindle::FileType
