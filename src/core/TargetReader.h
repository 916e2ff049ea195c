#pragma once

#include "core/FileIndex.h"

#include <QList>
#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

namespace pindle {

// Reads the targets of a list of shortcut files on a worker thread, so that a large folder
// never holds up the interface, and hands them to ShortcutURL's cache on the main thread.
//
// Threads: the owner, the cache and every member here belong to the main thread. The worker
// touches nothing but the paths it was given and its own answers, which it passes back through
// `Job`; the main thread stores them, leaving out those of files forgotten meanwhile (their
// change was seen while they were read).
class TargetReader
{
public:
    // context: an object of the main thread that outlives the reader (its owner, say); onRead
    // runs there each time a reading ends.
    TargetReader(QObject *context, std::function<void()> onRead);
    ~TargetReader();
    TargetReader(const TargetReader &) = delete;
    TargetReader &operator=(const TargetReader &) = delete;

    // True when every file's target is cached. Otherwise starts reading those that are not,
    // unless a reading is already under way (onRead then asks again), and returns false.
    bool ensureTargets(const QList<IndexedFile> &files);
    bool isReading() const { return m_job != nullptr; }
    // Waits for the reading under way, if any, and stores all it read. For tests.
    void waitForReading();

    struct Job;

private:
    // Stores the answers, a slice per event loop turn unless inOneGo, then tells the owner.
    // By value: it drops m_job.
    void finish(std::shared_ptr<Job> job, bool inOneGo);
    // Reads the job's files, on whichever thread runs the job.
    static void readAll(Job &job);
    // Stores the answers read[from, to); the last slice hands the list's targets to the cache.
    static void store(Job &job, qsizetype from, qsizetype to);

    QPointer<QObject> m_context;
    std::function<void()> m_onRead;
    std::shared_ptr<Job> m_job;
};

} // namespace pindle
