#include "core/ShortcutWriter.h"

// Placeholder until the writer is written.
namespace pindle::ShortcutWriter {

std::expected<QUrl, WriteError> create(const QString &, const QString &, const QUrl &)
{
    return std::unexpected(WriteError::writeFailed);
}

} // namespace pindle::ShortcutWriter
