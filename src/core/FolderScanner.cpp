#include "core/FolderScanner.h"

#include <QMetaObject>

#include <atomic>
#include <system_error>
#include <thread>
#include <utility>

namespace pindle {

// One scan: the worker fills in the listing, which the main thread reads only after joining it.
struct FolderScanner::Job
{
    FileIndex::FolderListing listing;
    std::atomic<bool> isCancelled = false;
    bool isFinished = false;
    std::thread worker;
};

FolderScanner::FolderScanner(QObject *context,
                             std::function<void(const QList<IndexedFile> &)> onScanned)
    : m_context(context), m_onScanned(std::move(onScanned))
{}

FolderScanner::~FolderScanner()
{
    cancel();
}

void FolderScanner::cancel()
{
    if (!m_job)
        return;
    m_job->isCancelled = true;
    m_job->worker.join();
    m_job->isFinished = true;
    m_job.reset();
}

std::optional<QList<IndexedFile>> FolderScanner::scan()
{
    // The scan under way began before whatever made this one be asked for.
    cancel();
    auto job = std::make_shared<Job>();
    if (FileIndex::startScan(job->listing))
        return std::move(job->listing.files);
    if (!FileIndex::isLarge(m_mostBytesInPlace)) {
        FileIndex::listFolder(job->listing, nullptr);
        return FileIndex::finishScan(std::move(job->listing));
    }

    // The context outlives the worker: the scanner, which the context's owner holds, joins it
    // when destroyed. The answer is posted; the scanner may be gone by the time it comes.
    QObject *context = m_context;
    const auto work = [job, context, this] {
        FileIndex::listFolder(job->listing, &job->isCancelled);
        if (job->isCancelled || context == nullptr)
            return;
        QMetaObject::invokeMethod(
            context,
            [job, this] {
                if (!job->isFinished)
                    finish(job);
            },
            Qt::QueuedConnection);
    };
    try {
        job->worker = std::thread(work);
    } catch (const std::system_error &) {
        // No thread to be had: the folder is listed here, holding the interface up.
        FileIndex::listFolder(job->listing, nullptr);
        return FileIndex::finishScan(std::move(job->listing));
    }
    m_job = std::move(job);
    return std::nullopt;
}

void FolderScanner::waitForScan()
{
    if (m_job)
        finish(m_job);
}

void FolderScanner::finish(std::shared_ptr<Job> job)
{
    job->worker.join();
    job->isFinished = true;
    if (m_job == job)
        m_job.reset();
    const QList<IndexedFile> files = FileIndex::finishScan(std::move(job->listing));
    if (m_onScanned)
        m_onScanned(files);
}

} // namespace pindle
