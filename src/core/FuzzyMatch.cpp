#include "core/FuzzyMatch.h"

#include "core/MatchKernel.h"
#include "core/MatchText.h"
#include "core/UnicodeQt.h"

#include <vector>

// The direct path: every character is taken apart with ICU on each call. The search uses
// prepared names instead and must agree with this exactly.
namespace pindle::FuzzyMatch {
namespace {

std::vector<QStringView> characters(QStringView text)
{
    const std::vector<qsizetype> bounds = Unicode::clusterBoundaries(text);
    std::vector<QStringView> result;
    result.reserve(bounds.size() - 1);
    for (size_t c = 0; c + 1 < bounds.size(); ++c)
        result.push_back(text.sliced(bounds[c], bounds[c + 1] - bounds[c]));
    return result;
}

} // namespace

std::optional<Result> match(const QString &query, const QString &candidate)
{
    const QString loweredQuery = Unicode::lowercased(QStringView(query));
    const std::vector<QStringView> q = characters(loweredQuery);
    const auto m = int32_t(q.size());
    if (m == 0)
        return std::nullopt;
    const std::vector<QStringView> c = characters(candidate);
    const auto n = int32_t(c.size());
    if (n < m)
        return std::nullopt;
    const QString loweredCandidate = Unicode::lowercased(QStringView(candidate));
    const std::vector<QStringView> k = characters(loweredCandidate);
    // Characters are paired with their lowercase by position; when lowercasing merged some,
    // the pairing is lost and the name is not matched.
    if (k.size() < c.size())
        return std::nullopt;

    // Ids local to this call: 1 + the index of the first canonically equivalent query
    // character, 0 for a candidate character equal to none of them.
    std::vector<QString> distinct;
    std::vector<uint32_t> queryIds;
    for (QStringView character : q) {
        const QString form = Unicode::decomposed(character);
        size_t index = 0;
        while (index < distinct.size() && distinct[index] != form)
            ++index;
        if (index == distinct.size())
            distinct.push_back(form);
        queryIds.push_back(uint32_t(index + 1));
    }
    std::vector<uint32_t> ids(size_t(n), 0);
    std::vector<uint8_t> flags(static_cast<size_t>(n));
    uint8_t previousClass = 0;
    for (int32_t j = 0; j < n; ++j) {
        const QString form = Unicode::decomposed(k[size_t(j)]);
        for (size_t index = 0; index < distinct.size(); ++index)
            if (distinct[index] == form)
                ids[size_t(j)] = uint32_t(index + 1);
        const uint8_t currentClass = detail::characterClass(Unicode::units(c[size_t(j)]));
        flags[size_t(j)] = detail::positionFlags(j == 0, previousClass, currentClass);
        previousClass = currentClass;
    }

    detail::KernelScratch scratch;
    std::vector<int32_t> positions;
    const std::optional<detail::KernelOutcome> outcome = detail::bestAlignment(
        detail::InternedName{ids.data(), flags.data(), n}, queryIds.data(), m, scratch, &positions);
    if (!outcome)
        return std::nullopt;
    return Result{detail::finalScore(outcome->total, n),
                  QList<qsizetype>(positions.begin(), positions.end())};
}

} // namespace pindle::FuzzyMatch
