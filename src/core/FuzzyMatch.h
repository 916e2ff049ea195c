#pragma once

#include <QList>
#include <QString>

#include <optional>

namespace pindle::FuzzyMatch {

struct Result
{
    double score = 0;
    QList<qsizetype> positions;
};

// Nothing when the query is empty or no allowed alignment of it exists in the candidate.
std::optional<Result> match(const QString &query, const QString &candidate);

} // namespace pindle::FuzzyMatch
