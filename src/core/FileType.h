#pragma once

#include <QByteArray>
#include <QMimeType>
#include <QString>

#include <optional>

// What kind of file a path names, found without ever waiting on it: a folder can change between
// a scan and a look, and a file swapped for a pipe must not stall the caller.
namespace pindle::FileType {

// The type from the file's name and first bytes when it is a regular file (links followed);
// pipes, devices, sockets and folders are typed by what they are and never opened. Nothing when
// there is no such file.
std::optional<QMimeType> of(const QString &path);
// The same, for a path in the file system's bytes.
std::optional<QMimeType> ofNativePath(const QByteArray &nativePath);

} // namespace pindle::FileType
