#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <thread>

namespace pindle::test {

// Before each test case, empties HOME and drops the answers the shortcut readers keep, so that
// every case starts from a fresh folder whether the cases of a program run in one process or
// in one each. HOME keeps its path: the folder the scan reads is computed from it once.
void emptyHomeBeforeEachTest();
QString homePath();
// $HOME/conflocal/urls, the folder the scan reads.
QString shortcutFolder();
QString inFolder(const QString &name);
// Writes bytes to path, creating parent folders; fails the test when it can't.
void writeFile(const QString &path, const QByteArray &bytes);
QByteArray readFile(const QString &path);
// Writes <shortcut folder>/<name>.webloc pointing at url; returns its path.
QString writeWebloc(const QString &name, const QString &url);

// Replaces the file at path by a regular file, then by a pipe, and so on until destroyed, each
// time atomically by rename, as a sync client replaces files: whatever looks at the path and
// then opens it sooner or later finds a pipe where it saw a file.
class PipeSwapper
{
public:
    explicit PipeSwapper(const QString &path);
    ~PipeSwapper();
    PipeSwapper(const PipeSwapper &) = delete;
    PipeSwapper &operator=(const PipeSwapper &) = delete;

private:
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

} // namespace pindle::test
