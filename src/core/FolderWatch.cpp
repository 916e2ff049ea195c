#include "core/FolderWatch.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace pindle::detail {
namespace {

// Everything that changes which entries the folder lists or what a file holds. IN_MODIFY as
// well as IN_CLOSE_WRITE: a writer may still hold the file open when the panel is shown.
constexpr uint32_t watchedEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY |
                                   IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF |
                                   IN_ONLYDIR;
// Events about the folder itself, or that tell of events lost.
constexpr uint32_t wholeFolderEvents =
    IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED | IN_Q_OVERFLOW;
constexpr size_t readBufferSize = 64 * 1024;

// File systems whose files may change on another machine, which raises no event here.
constexpr std::array<long, 8> remoteFileSystems = {
    0x6969,     // NFS
    0x517B,     // SMB
    0xFE534D42, // SMB2
    0xFF534D42, // CIFS
    0x65735546, // FUSE
    0x01021997, // 9P
    0x00C36400, // Ceph
    0x47504653, // GPFS
};

bool isRemote(int fd)
{
    struct statfs info = {};
    if (::fstatfs(fd, &info) != 0)
        return true;
    for (const long type : remoteFileSystems) {
        if (static_cast<unsigned long>(info.f_type) == static_cast<unsigned long>(type))
            return true;
    }
    return false;
}

} // namespace

FolderWatch::~FolderWatch()
{
    stop();
    if (m_givenUp >= 0)
        ::close(m_givenUp);
}

void FolderWatch::giveUp()
{
    if (m_givenUp >= 0)
        ::close(m_givenUp);
    m_givenUp = std::exchange(m_inotify, -1);
    stop();
}

void FolderWatch::stop()
{
    if (m_inotify >= 0)
        ::close(m_inotify);
    m_inotify = -1;
    m_watch = -1;
    m_path.clear();
}

bool FolderWatch::watch(int folderFd, const QByteArray &path)
{
    struct stat info = {};
    if (::fstat(folderFd, &info) != 0 || isRemote(folderFd)) {
        stop();
        return false;
    }
    if (m_watch >= 0 && info.st_dev == m_device && info.st_ino == m_inode && path == m_path)
        return true;
    stop();
    m_inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_inotify < 0)
        return false;
    // Through the descriptor, so that the watch is on the very folder the caller lists, even
    // if the path has been pointed elsewhere since it was opened.
    const std::string self = "/proc/self/fd/" + std::to_string(folderFd);
    m_watch = ::inotify_add_watch(m_inotify, self.c_str(), watchedEvents);
    if (m_watch < 0) {
        stop();
        return false;
    }
    m_path = path;
    m_device = info.st_dev;
    m_inode = info.st_ino;
    return true;
}

FolderChanges FolderWatch::takeChanges()
{
    FolderChanges changes;
    if (m_watch < 0)
        return changes;
    alignas(inotify_event) std::array<char, readBufferSize> buffer;
    bool isWhole = false;
    for (;;) {
        const ssize_t size = ::read(m_inotify, buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0 && errno == EAGAIN)
            break;
        if (size <= 0) {
            isWhole = true;
            break;
        }
        for (ssize_t at = 0; at < size;) {
            inotify_event event;
            std::memcpy(&event, buffer.data() + at, sizeof event);
            const char *name = buffer.data() + at + sizeof event;
            at += ssize_t(sizeof event + event.len);
            // An event without a name is about the folder itself (its permissions, say).
            if ((event.mask & wholeFolderEvents) != 0 || event.len == 0)
                isWhole = true;
            else
                changes.names.emplace_back(name, ::strnlen(name, event.len));
        }
    }
    // The path may now lead elsewhere: the folder (or one above it) renamed, removed,
    // recreated or replaced by a link.
    struct stat info = {};
    if (::stat(m_path.constData(), &info) != 0 || info.st_dev != m_device || info.st_ino != m_inode)
        isWhole = true;
    if (isWhole) {
        giveUp();
        changes.names.clear();
        return changes;
    }
    changes.isComplete = true;
    return changes;
}

} // namespace pindle::detail
