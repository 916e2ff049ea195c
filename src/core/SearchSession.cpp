#include "core/SearchSession.h"

#include "core/SearchIndex.h"

namespace pindle {

SearchSession::SearchSession() : m_state(std::make_unique<detail::SearchState>()) {}

SearchSession::~SearchSession() = default;

} // namespace pindle
