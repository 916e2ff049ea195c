#include "core/ShortcutURL.h"

// Placeholder until the readers are written.
namespace pindle::ShortcutURL {

std::optional<QString> target(const QUrl &)
{
    return std::nullopt;
}

QString subtitle(const QUrl &)
{
    return {};
}

void clearCaches() {}

} // namespace pindle::ShortcutURL
