#pragma once

#include "core/FileIndex.h"

#include <QList>
#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>
#include <optional>

namespace pindle {

// Scans the shortcut folder for a panel: at once when nothing changed or the folder is small,
// else on a worker thread, so that listing a large folder never holds up the interface.
//
// Threads: the owner and every member here belong to the main thread. The worker lists the
// folder into its job alone and posts the job back; the main thread ends the scan with it.
class FolderScanner
{
public:
    // Folders that take up to this many bytes on disk (some thousands of names) are listed in
    // place: it takes a few milliseconds.
    static constexpr qint64 mostBytesListedInPlace = 128 * 1024;

    // context: an object of the main thread that outlives the scanner; onScanned runs there
    // with the list when a scan made on the worker ends.
    FolderScanner(QObject *context, std::function<void(const QList<IndexedFile> &)> onScanned);
    ~FolderScanner();
    FolderScanner(const FolderScanner &) = delete;
    FolderScanner &operator=(const FolderScanner &) = delete;

    // The folder's list when it is at hand now. Otherwise starts a scan on the worker (the one
    // under way, if any, is given up) and returns nothing: onScanned brings the list.
    std::optional<QList<IndexedFile>> scan();
    bool isScanning() const { return m_job != nullptr; }
    // Tests list small folders on the worker too.
    void setMostBytesInPlace(qint64 bytes) { m_mostBytesInPlace = bytes; }
    // Waits for the scan under way, if any, and hands its list over. For tests.
    void waitForScan();

    struct Job;

private:
    // By value: it drops m_job.
    void finish(std::shared_ptr<Job> job);
    void cancel();

    QPointer<QObject> m_context;
    std::function<void(const QList<IndexedFile> &)> m_onScanned;
    qint64 m_mostBytesInPlace = mostBytesListedInPlace;
    std::shared_ptr<Job> m_job;
};

} // namespace pindle
