#pragma once

#include <QString>

#include <memory>

namespace pindle::detail {

struct PreparedName;

// Analyses a display name once, so that searches need not redo it per key stroke. May return
// null; the search then works from the name itself.
std::shared_ptr<const PreparedName> prepareName(const QString &displayName);

} // namespace pindle::detail
