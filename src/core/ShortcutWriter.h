#pragma once

#include <QString>
#include <QUrl>

#include <expected>

namespace pindle::ShortcutWriter {

enum class WriteError { invalidName, alreadyExists, writeFailed };

// Writes folder/<name>.webloc holding the address; never replaces an existing item.
std::expected<QUrl, WriteError> create(const QString &name, const QString &url, const QUrl &folder);

} // namespace pindle::ShortcutWriter
