#pragma once

#include <QByteArray>
#include <QString>

namespace pindle::test {

// The temporary home directory of this test process (HOME points at it).
QString homePath();
// $HOME/conflocal/urls, the folder the scan reads.
QString shortcutFolder();
// Writes bytes to path, creating parent folders; fails the test when it can't.
void writeFile(const QString &path, const QByteArray &bytes);
QByteArray readFile(const QString &path);
// Writes <shortcut folder>/<name>.webloc pointing at url, as browsers do; returns its path.
QString writeWebloc(const QString &name, const QString &url);

} // namespace pindle::test
