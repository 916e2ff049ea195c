#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QLatin1StringView>
#include <QString>
#include <QStringView>

#include <optional>

// The two shortcut file formats, read from bytes, and the guarded read that feeds them. Private
// to the core library: ShortcutURL adds the caches and the choice by extension.
namespace pindle::ShortcutFormat {

// A real shortcut is well under a kilobyte; larger files are refused before they are read.
inline constexpr qint64 maxFileSize = qint64(1) << 20;

// Whether the text after the last "." of a file name (not counting a "." that starts the name),
// lower-cased, is `extension`, which is given in lower case.
bool hasExtension(QStringView fileName, QLatin1StringView extension);

// Room for a file's bytes: a real shortcut fits the buffer, anything larger goes to spill.
struct FileBytes
{
    char buffer[4096];
    QByteArray spill;
};

// The whole file, when it is a regular file (symbolic links followed) of at most maxFileSize
// bytes, read into `into`; nothing otherwise. Never blocks on pipes or devices.
std::optional<QByteArrayView> readFile(const QString &path, FileBytes &into);
// The same, for a path in the file system's bytes.
std::optional<QByteArrayView> readFile(const char *nativePath, FileBytes &into);

// The string under the key "URL" of a property list (XML or binary) whose root is a dictionary.
std::optional<QString> plistTarget(QByteArrayView bytes);

// The value of the first line that starts with "url=" (any case) of INI-style text in UTF-8 or
// else ISO Latin-1; nothing when that value is empty.
std::optional<QString> iniTarget(QByteArrayView bytes);

} // namespace pindle::ShortcutFormat
