#pragma once

#include "core/FileIndex.h"

#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace pindle::ShortcutURL {

// The address a shortcut file points at; nothing for unreadable or unknown files. Cached per
// path until clearCaches().
std::optional<QString> target(const QUrl &file);
// The target, else the file's type description, else empty. Cached per path.
QString subtitle(const QUrl &file);
void clearCaches();

} // namespace pindle::ShortcutURL

namespace pindle::detail {

// A file's target as read, and whether the folder watch would see the file change.
struct ReadTarget
{
    std::optional<QString> target;
    bool isWatched = false;
};

// The uncached read behind target(); safe on any thread.
ReadTarget readTarget(const QUrl &file);

// The rest is for the main thread, which owns the caches.
// Drops the cached answers for one file.
void forgetFile(const QUrl &file);
// Drops the cached answers for the files whose changes the folder watch can't see.
void forgetUnwatchedFiles();
bool isTargetCached(const QUrl &file);
// Reads the targets of the files not yet cached, on this thread and one helper, into the cache;
// the helper only reads files, and the caches are filled once it has finished.
void cacheTargets(const QList<IndexedFile> &files);
// The targets of `files` in their order when all of them are cached, else null. Valid until the
// next call or the next change to the caches.
const std::vector<std::optional<QString>> *cachedTargets(const QList<IndexedFile> &files);
// Whether cachedTargets(files) has its answer at hand, without looking any file up.
bool hasListedTargets(const QList<IndexedFile> &files);
// The cached targets of `files` in their order, with nothing for a file whose target is not
// cached; the positions of those go into `missing`.
std::vector<std::optional<QString>> knownTargets(const QList<IndexedFile> &files,
                                                 std::vector<qsizetype> &missing);
// Takes `targets` as those of `files` in their order, all of them cached as they stand, for
// cachedTargets() to give back without looking each file up.
void keepListedTargets(const QList<IndexedFile> &files,
                       std::vector<std::optional<QString>> targets);
// Starts recording what is forgotten, so that storeReadTargets() can leave out answers read
// before their file changed. One reader at a time.
void markForgetting();
// Caches the targets read beside the interface since markForgetting(), but none forgotten
// since then; none at all when the caches were cleared meanwhile. True when every answer went
// into the cache as it was read: nothing was forgotten, cleared or cached another way since.
bool storeReadTargets(const QList<QUrl> &files, std::vector<ReadTarget> &read);
// The same for files[from, to) alone, so that a long list can be stored a slice at a time; the
// recording goes on until the slice that reaches the end of the list is stored, and only that
// one can return true.
bool storeReadTargets(const QList<QUrl> &files, std::vector<ReadTarget> &read, qsizetype from,
                      qsizetype to);

} // namespace pindle::detail
