#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QUrl>

// Local file URLs that name a file exactly, whatever bytes its name holds. A name that is not
// UTF-8 has no QString that names it; its URL keeps those bytes percent-encoded instead, and
// every path handed to the file system is taken from the URL's bytes, not from its text.
namespace pindle::LocalPath {

// The path of a local file URL as the file system spells it.
QByteArray nativePath(const QUrl &file);
// A file URL for a path in the file system's bytes.
QUrl fileUrl(QByteArrayView nativePath);

} // namespace pindle::LocalPath
