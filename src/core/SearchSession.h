#pragma once

#include <memory>

namespace pindle {

namespace detail {
struct SearchState;
}

// What FileIndex::search reuses from one call to the next, so that a key stroke allocates
// nothing and, while a query grows, reads only the names that passed the query before: the
// kernel's scratch tables, the dense index of the list searched last (which keeps that list
// referenced), the names prepared for records that came without, and the ids of the characters
// of several code points in that list and its queries (emptied when the list is replaced). Each
// panel holds one; a call without one uses a fresh session, slower by that index but with the
// same results, and no call's speed depends on another session's.
//
// Threads: a session is used by one thread at a time, the one that owns the panel (the main
// thread). The prepared names it reads are immutable once made and are shared with the scan,
// which makes them on its own thread with a NameBatch of its own; nothing the search reuses is
// shared between threads.
class SearchSession
{
public:
    SearchSession();
    ~SearchSession();
    SearchSession(const SearchSession &) = delete;
    SearchSession &operator=(const SearchSession &) = delete;

    detail::SearchState &state() { return *m_state; }

private:
    std::unique_ptr<detail::SearchState> m_state;
};

} // namespace pindle
