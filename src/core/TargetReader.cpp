#include "core/TargetReader.h"

#include "core/BackgroundWork.h"
#include "core/ShortcutURL.h"

#include <QTimer>

#include <algorithm>
#include <atomic>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace pindle {
namespace {

// Up to this many missing targets are read on the calling thread: it takes a few milliseconds,
// and a small folder's list is then there at once, as it always was.
constexpr qsizetype mostReadInPlace = 256;
// The answers are stored this many to an event loop turn, so that a large folder's do not hold
// the interface up in one go.
constexpr qsizetype mostStoredPerTurn = 1024;

} // namespace

// One reading: filled in by the main thread before the worker starts, read by the main thread
// only after the worker has ended (join), apart from the flag that asks the worker to stop.
struct TargetReader::Job
{
    // The list asked about, and the targets of all its files in its order: those cached when
    // the reading began, the rest filled in by the worker as it reads them. Once all are stored
    // the cache takes them whole, so that the list's first showing looks up no file.
    QList<IndexedFile> list;
    std::vector<std::optional<QString>> targets;
    // The files to read, and their positions in the list.
    QList<QUrl> files;
    std::vector<qsizetype> positions;
    std::vector<detail::ReadTarget> read;
    std::atomic<bool> isCancelled = false;
    bool isFinished = false;
    // How many answers the main thread has stored so far.
    qsizetype stored = 0;
    std::thread worker;
};

void TargetReader::readAll(Job &job)
{
    // Only const access to the job's lists: nothing detaches them while the worker runs.
    const QList<QUrl> &files = job.files;
    job.read.resize(size_t(files.size()));
    for (qsizetype k = 0; k < files.size() && !job.isCancelled; ++k) {
        job.read[size_t(k)] = detail::readTarget(files.at(k));
        job.targets[size_t(job.positions[size_t(k)])] = job.read[size_t(k)].target;
    }
}

void TargetReader::store(Job &job, qsizetype from, qsizetype to)
{
    if (detail::storeReadTargets(job.files, job.read, from, to))
        detail::keepListedTargets(job.list, std::exchange(job.targets, {}));
}

TargetReader::TargetReader(QObject *context, std::function<void()> onRead)
    : m_context(context), m_onRead(std::move(onRead))
{}

TargetReader::~TargetReader()
{
    if (m_job && !m_job->isFinished) {
        m_job->isCancelled = true;
        m_job->worker.join();
        m_job->isFinished = true;
    }
}

bool TargetReader::ensureTargets(const QList<IndexedFile> &files)
{
    if (m_job)
        return false;
    if (detail::hasListedTargets(files))
        return true;
    auto job = std::make_shared<Job>();
    job->list = files;
    job->targets = detail::knownTargets(files, job->positions);
    if (job->positions.empty()) {
        detail::keepListedTargets(files, std::move(job->targets));
        return true;
    }
    job->files.reserve(qsizetype(job->positions.size()));
    for (const qsizetype at : job->positions)
        job->files.append(files[at].url);
    if (job->files.size() <= mostReadInPlace) {
        readAll(*job);
        detail::markForgetting();
        store(*job, 0, job->files.size());
        return true;
    }
    detail::markForgetting();

    const bool isStarted = detail::startBackgroundWork(
        job, m_context.data(), [this](Job &reading) { readAll(reading); },
        [this](const std::shared_ptr<Job> &reading) { finish(reading, false); });
    if (!isStarted) {
        // No thread to be had: the targets are read here, holding the interface up.
        readAll(*job);
        job->isFinished = true;
        store(*job, 0, job->files.size());
        return true;
    }
    m_job = std::move(job);
    return false;
}

void TargetReader::waitForReading()
{
    if (m_job)
        finish(m_job, true);
}

void TargetReader::finish(std::shared_ptr<Job> job, bool inOneGo)
{
    if (!job->isFinished) {
        job->worker.join();
        job->isFinished = true;
    }
    if (!job->isCancelled) {
        const qsizetype count = job->files.size();
        const qsizetype end =
            inOneGo || !m_context ? count : std::min(count, job->stored + mostStoredPerTurn);
        store(*job, job->stored, end);
        job->stored = end;
        if (end < count) {
            // The job stays the reader's meanwhile, so that no other reading starts and
            // forgetting is recorded until the last slice is in.
            QTimer::singleShot(0, m_context.data(), [job, this] {
                if (m_job == job)
                    finish(job, false);
            });
            return;
        }
    }
    if (m_job == job)
        m_job.reset();
    if (m_onRead)
        m_onRead();
}

} // namespace pindle
