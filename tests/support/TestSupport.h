#pragma once

#include <QByteArray>
#include <QString>

#include <string>

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
// Lines of UTF-8 text, each with its line break, of every length from none to a few times 64
// bytes: ASCII words and separators, CR, and characters beyond ASCII (accents both ways, emoji,
// other scripts, case-changing letters, and the ones that lowercase to ASCII characters).
std::string generatedLines(int count, unsigned seed);

} // namespace pindle::test
