#pragma once

#include <QByteArray>

#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace pindle::detail {

// What may have changed in a watched folder since the last look.
struct FolderChanges
{
    // False when anything may have changed: nothing was watched, events were lost, or the
    // folder itself was changed, moved, removed or replaced. Everything is to be read again.
    bool isComplete = false;
    // The entries created, removed, renamed (both names), written or changed in their
    // attributes, as the folder names them; a name may come more than once.
    std::vector<std::string> names;
};

// An inotify watch on one folder. The kernel queues an event at the moment of each change, so
// draining the queue without blocking sees every change made before the drain. Not thread-safe:
// its owner serialises the calls.
class FolderWatch
{
public:
    FolderWatch() = default;
    ~FolderWatch();
    FolderWatch(const FolderWatch &) = delete;
    FolderWatch &operator=(const FolderWatch &) = delete;

    // Watches the folder open at folderFd, which the caller opened from `path`, dropping any
    // earlier watch and its queued events unless it is on the same folder. False when the
    // folder can't be watched (no inotify, a file system whose remote changes raise no events);
    // takeChanges() is then never complete.
    bool watch(int folderFd, const QByteArray &path);
    // Drains the queued events without blocking, and checks that `path` still names the
    // watched folder.
    FolderChanges takeChanges();
    void stop();
    // The descriptor of the watch that takeChanges() gave up, if any (else -1), for the caller
    // to close where waiting does not matter: closing an inotify descriptor waits for the
    // kernel to let go of its watches, which takes milliseconds.
    int takeGivenUp() { return std::exchange(m_givenUp, -1); }

private:
    void giveUp();

    int m_inotify = -1;
    int m_givenUp = -1;
    int m_watch = -1;
    QByteArray m_path;
    dev_t m_device = 0;
    ino_t m_inode = 0;
};

} // namespace pindle::detail
