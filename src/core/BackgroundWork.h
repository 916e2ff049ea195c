#pragma once

#include <QMetaObject>
#include <QObject>

#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace pindle::detail {

// Starts job->worker on a thread of its own: it runs work(*job) and then, unless the job was
// cancelled meanwhile, posts done(job) to context's thread, where it runs only if the job has
// not been finished another way by then (joined early, or given up). The context must outlive
// the worker: its owner joins the worker when destroyed. The answer is posted, so the owner may
// be gone by the time it comes; context then drops it. False when no thread could be had, and
// work has not run.
//
// Job needs: std::atomic<bool> isCancelled, bool isFinished (main thread only), std::thread worker.
template <typename Job, typename Work, typename Done>
bool startBackgroundWork(const std::shared_ptr<Job> &job, QObject *context, Work work, Done done)
{
    try {
        job->worker = std::thread([job, context, work = std::move(work), done = std::move(done)] {
            work(*job);
            if (job->isCancelled || context == nullptr)
                return;
            QMetaObject::invokeMethod(
                context,
                [job, done] {
                    if (!job->isFinished)
                        done(job);
                },
                Qt::QueuedConnection);
        });
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}

} // namespace pindle::detail
