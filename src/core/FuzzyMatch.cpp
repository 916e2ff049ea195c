#include "core/FuzzyMatch.h"

// Placeholder until the matcher is written.
namespace pindle::FuzzyMatch {

std::optional<Result> match(const QString &, const QString &)
{
    return std::nullopt;
}

} // namespace pindle::FuzzyMatch
