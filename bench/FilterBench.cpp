// pindle-bench --filter QUERY: names on standard input (UTF-8, one a line), every match on
// standard output, best first, as fzy -e prints them. It is built on the matcher alone, without
// Qt, so that a run costs what the matching costs and not the loading of Qt; every other mode
// of pindle-bench is pindle-search-bench's (SearchBench.cpp), which this program becomes.

#include "core/MatchText.h"
#include "core/Unicode.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace pindle;

namespace {

// All of standard input. A regular file is mapped with its pages populated up front: first
// touches of fresh memory are expensive on virtual machines, and a pipe tool's input is
// usually a file.
std::string_view readInput(std::string &storage)
{
    struct stat info = {};
    if (fstat(0, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
        void *mapped =
            mmap(nullptr, size_t(info.st_size), PROT_READ, MAP_PRIVATE | MAP_POPULATE, 0, 0);
        if (mapped != MAP_FAILED)
            return {static_cast<const char *>(mapped), size_t(info.st_size)};
    }
    char buffer[1 << 16];
    for (ssize_t got; (got = ::read(0, buffer, sizeof buffer)) > 0;)
        storage.append(buffer, size_t(got));
    return storage;
}

class Output
{
public:
    ~Output() { flush(); }
    void write(std::string_view text)
    {
        if (m_used + text.size() > sizeof m_buffer)
            flush();
        if (text.size() > sizeof m_buffer) {
            put(text);
            return;
        }
        std::memcpy(m_buffer + m_used, text.data(), text.size());
        m_used += text.size();
    }
    void flush()
    {
        put({m_buffer, m_used});
        m_used = 0;
    }

private:
    static void put(std::string_view text)
    {
        while (!text.empty()) {
            const ssize_t written = ::write(1, text.data(), text.size());
            if (written <= 0)
                return;
            text.remove_prefix(size_t(written));
        }
    }
    char m_buffer[1 << 16];
    size_t m_used = 0;
};

// The next occurrence of the query's first plain ASCII character, in either case.
class NextOccurrence
{
public:
    NextOccurrence(std::string_view input, const detail::PreparedQuery &query) : m_input(input)
    {
        if (query.asciiIds.empty() || query.hasK)
            return;
        const auto id = char(query.asciiIds.front());
        m_wanted[0] = id;
        m_wanted[1] = id >= 'a' && id <= 'z' ? char(id - 'a' + 'A') : id;
        m_isUsable = true;
    }

    bool isUsable() const { return m_isUsable; }

    size_t from(size_t position)
    {
        for (int i = 0; i < 2; ++i) {
            if (m_next[i] != std::string_view::npos && m_next[i] < position)
                m_next[i] = m_input.find(m_wanted[i], position);
        }
        return std::min(m_next[0], m_next[1]);
    }

private:
    std::string_view m_input;
    char m_wanted[2] = {};
    size_t m_next[2] = {0, 0};
    bool m_isUsable = false;
};

struct FilterHit
{
    double score;
    const char *line;
    size_t length;
};

// Scores the lines of a stretch of whole lines, appending the matches in input order.
void filterLines(std::string_view input, const detail::PreparedQuery &query,
                 std::vector<FilterHit> &hits)
{
    // Lines without the query's first ASCII character in either case can't match (unless a
    // Kelvin sign stands in for a k): jump from one occurrence of it to the next.
    NextOccurrence first(input, query);
    for (size_t begin = 0; begin < input.size();) {
        if (first.isUsable()) {
            const size_t at = first.from(begin);
            if (at == std::string_view::npos)
                break;
            const size_t lineStart = input.rfind('\n', at);
            begin = std::max(begin, lineStart == std::string_view::npos ? 0 : lineStart + 1);
        }
        size_t end = input.find('\n', begin);
        if (end == std::string_view::npos)
            end = input.size();
        const std::string_view line = input.substr(begin, end - begin);
        if (const std::optional<double> score = detail::scoreUtf8(query, line))
            hits.push_back({*score, line.data(), line.size()});
        begin = end + 1;
    }
}

// Prints every line that matches, best first; lines of equal score keep their input order.
// Like fzy, it matches on every core: the input is cut in two at a line break.
int runFilter(const char *queryArgument)
{
    std::string storage;
    const std::string_view input = readInput(storage);
    const detail::PreparedQuery query = detail::prepareQuery(Unicode::fromUtf8(queryArgument));

    size_t middle = input.find('\n', input.size() / 2);
    middle = middle == std::string_view::npos ? input.size() : middle + 1;
    std::vector<FilterHit> hits;
    std::vector<FilterHit> secondHits;
    std::thread second([&] { filterLines(input.substr(middle), query, secondHits); });
    filterLines(input.substr(0, middle), query, hits);
    second.join();
    hits.insert(hits.end(), secondHits.begin(), secondHits.end());

    // Lines lie in the input in input order, so their addresses break ties as a stable sort
    // would, without its buffer.
    std::sort(hits.begin(), hits.end(), [](const FilterHit &a, const FilterHit &b) {
        return a.score != b.score ? a.score > b.score : a.line < b.line;
    });
    Output output;
    for (const FilterHit &hit : hits) {
        output.write({hit.line, hit.length});
        output.write("\n");
    }
    return 0;
}

// Runs pindle-search-bench from this program's folder with the same arguments; returns only
// when it could not be started.
int runSearchBench(char **argv)
{
    char self[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self);
    if (length <= 0 || size_t(length) == sizeof self) {
        std::fprintf(stderr, "pindle-bench: cannot tell where it is installed\n");
        return 127;
    }
    std::string path(self, size_t(length));
    path.replace(path.rfind('/') + 1, std::string::npos, "pindle-search-bench");
    ::execv(path.c_str(), argv);
    std::fprintf(stderr, "pindle-bench: cannot run %s: %s\n", path.c_str(), std::strerror(errno));
    return 127;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 3 && std::string_view(argv[1]) == "--filter")
        return runFilter(argv[2]);
    return runSearchBench(argv);
}
