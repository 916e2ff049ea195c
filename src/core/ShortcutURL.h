#pragma once

#include <QString>
#include <QUrl>

#include <optional>

namespace pindle::ShortcutURL {

// The address a shortcut file points at; nothing for unreadable or unknown files. Cached per
// path until clearCaches().
std::optional<QString> target(const QUrl &file);
// The target, else the file's type description, else empty. Cached per path.
QString subtitle(const QUrl &file);
void clearCaches();

} // namespace pindle::ShortcutURL
