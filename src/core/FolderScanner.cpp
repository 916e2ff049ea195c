#include "core/FolderScanner.h"

#include "core/BackgroundWork.h"

#include <atomic>
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

    const bool isStarted = detail::startBackgroundWork(
        job, m_context.data(),
        [](Job &listed) { FileIndex::listFolder(listed.listing, &listed.isCancelled); },
        [this](const std::shared_ptr<Job> &listed) { finish(listed); });
    if (!isStarted) {
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
