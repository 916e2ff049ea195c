// pindle-bench --filter QUERY: names on standard input (UTF-8, one a line), every match on
// standard output, best first, as fzy -e prints them. It is built on the matcher alone, without
// Qt, so that a run costs what the matching costs and not the loading of Qt; every other mode
// of pindle-bench is pindle-search-bench's (SearchBench.cpp), which this program becomes.

#include "LineFilter.h"
#include "core/Unicode.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace pindle;

namespace {

constexpr size_t hugePageSize = size_t(2) << 20;

// An array of trivially copyable values in memory of its own, which the kernel may back with
// 2 MiB pages once it is large. On virtual machines the first touch of each 4 KiB page costs
// some microseconds, as much as matching dozens of lines, while the lines and hits of a large
// input fill hundreds of pages; with huge pages that is one fault per 2 MiB. It grows by
// remapping, not by copying. Running out of memory ends the process.
template <typename T>
class PageArray
{
public:
    PageArray() = default;
    PageArray(const PageArray &) = delete;
    PageArray &operator=(const PageArray &) = delete;
    ~PageArray()
    {
        if (m_data != nullptr)
            ::munmap(m_data, m_capacity * sizeof(T));
    }

    T *data() { return m_data; }
    const T *begin() const { return m_data; }
    const T *end() const { return m_data + m_size; }
    size_t size() const { return m_size; }
    size_t capacity() const { return m_capacity; }
    T &operator[](size_t at) { return m_data[at]; }

    void reserve(size_t capacity)
    {
        if (capacity <= m_capacity)
            return;
        // Small arrays keep small pages: a huge page is zeroed whole when first touched.
        size_t bytes = (capacity * sizeof(T) + 4095) & ~size_t(4095);
        if (bytes >= hugePageSize / 4)
            bytes = (bytes + hugePageSize - 1) & ~(hugePageSize - 1);
        void *memory =
            m_data == nullptr
                ? ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                : ::mremap(m_data, m_capacity * sizeof(T), bytes, MREMAP_MAYMOVE);
        if (memory == MAP_FAILED) {
            std::fprintf(stderr, "pindle-bench: out of memory\n");
            std::exit(1);
        }
        if (bytes >= hugePageSize)
            ::madvise(memory, bytes, MADV_HUGEPAGE);
        m_data = static_cast<T *>(memory);
        m_capacity = bytes / sizeof(T);
    }

    void push_back(const T &value)
    {
        if (m_size == m_capacity)
            reserve(2 * m_capacity + 1);
        m_data[m_size++] = value;
    }

    // New elements are left as the memory was.
    void resize(size_t size)
    {
        reserve(size);
        m_size = size;
    }

private:
    T *m_data = nullptr;
    size_t m_size = 0;
    size_t m_capacity = 0;
};

// All of standard input, read rather than mapped: a mapped file is mapped page by page.
std::string_view readInput(PageArray<char> &storage)
{
    struct stat info = {};
    if (fstat(0, &info) == 0 && S_ISREG(info.st_mode))
        storage.reserve(size_t(info.st_size) + 1);
    for (;;) {
        if (storage.size() == storage.capacity())
            storage.reserve(2 * storage.capacity() + 65536);
        const ssize_t got =
            ::read(0, storage.data() + storage.size(), storage.capacity() - storage.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        storage.resize(storage.size() + size_t(got));
    }
    return {storage.data(), storage.size()};
}

struct FilterHit
{
    double score;
    const char *line;
    size_t length; // with the line break after it, when there is one
};

// Scores the lines of a stretch of whole lines, appending the matches in input order.
void filterLines(std::string_view input, const filter::FilterQuery &query,
                 PageArray<FilterHit> &hits)
{
    // Room for a hit on every line of usual length.
    hits.reserve(input.size() / 32 + 64);
    const char *const end = input.data() + input.size();
    const auto keep = [&hits, end](std::string_view line, double score) {
        const char *const lineEnd = line.data() + line.size();
        hits.push_back({score, line.data(), line.size() + (lineEnd < end ? 1 : 0)});
    };
    filter::LineScorer(query).scoreLines(input, keep);
}

// The hits of all parts, which hold them in input order, put in result by score, highest first, and
// in input order among equal scores: the order of a stable sort.
//
// A score is a multiple of 0.05 but for rounding, so the hits are first distributed by twenty
// times their score, a small integer, in one pass; only hits that share that number and yet
// differ by rounding are then sorted by their exact scores.
void order(std::initializer_list<const PageArray<FilterHit> *> parts, PageArray<FilterHit> &result)
{
    const auto bucketOf = [](double score) { return int64_t(std::llround(score * 20)); };
    size_t count = 0;
    int64_t lowest = std::numeric_limits<int64_t>::max();
    int64_t highest = std::numeric_limits<int64_t>::min();
    for (const PageArray<FilterHit> *part : parts) {
        count += part->size();
        for (const FilterHit &hit : *part) {
            lowest = std::min(lowest, bucketOf(hit.score));
            highest = std::max(highest, bucketOf(hit.score));
        }
    }
    result.resize(count);
    FilterHit *const out = result.data();
    const auto isBefore = [](const FilterHit &a, const FilterHit &b) { return a.score > b.score; };
    if (count == 0 || highest - lowest > int64_t(4 * count + 4096)) {
        FilterHit *at = out;
        for (const PageArray<FilterHit> *part : parts)
            at = std::copy(part->begin(), part->end(), at);
        std::stable_sort(out, out + count, isBefore);
        return;
    }
    // Where each bucket starts, highest bucket first.
    std::vector<size_t> starts(size_t(highest - lowest) + 2, 0);
    for (const PageArray<FilterHit> *part : parts)
        for (const FilterHit &hit : *part)
            ++starts[size_t(highest - bucketOf(hit.score)) + 1];
    for (size_t b = 1; b < starts.size(); ++b)
        starts[b] += starts[b - 1];
    std::vector<size_t> next(starts.begin(), starts.end() - 1);
    for (const PageArray<FilterHit> *part : parts)
        for (const FilterHit &hit : *part)
            out[next[size_t(highest - bucketOf(hit.score))]++] = hit;
    for (size_t b = 0; b + 1 < starts.size(); ++b) {
        FilterHit *const begin = out + starts[b];
        FilterHit *const end = out + starts[b + 1];
        if (!std::is_sorted(begin, end, isBefore))
            std::stable_sort(begin, end, isBefore);
    }
}

// Writes the lines, each with a line break, straight from the input: runs of lines that follow
// each other in the input go out as one piece.
void print(const PageArray<FilterHit> &hits)
{
    static const char lineBreak = '\n';
    std::vector<iovec> pieces;
    pieces.reserve(IOV_MAX);
    const auto flush = [&pieces] {
        iovec *piece = pieces.data();
        size_t left = pieces.size();
        while (left > 0) {
            const ssize_t written = ::writev(1, piece, int(left));
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0)
                break;
            for (auto rest = size_t(written); rest > 0 && left > 0;) {
                const size_t taken = std::min(rest, piece->iov_len);
                piece->iov_base = static_cast<char *>(piece->iov_base) + taken;
                piece->iov_len -= taken;
                rest -= taken;
                if (piece->iov_len == 0) {
                    ++piece;
                    --left;
                }
            }
        }
        pieces.clear();
    };
    const auto add = [&](const char *text, size_t length) {
        if (!pieces.empty() &&
            static_cast<const char *>(pieces.back().iov_base) + pieces.back().iov_len == text) {
            pieces.back().iov_len += length;
            return;
        }
        if (pieces.size() == IOV_MAX)
            flush();
        pieces.push_back({const_cast<char *>(text), length});
    };
    for (const FilterHit &hit : hits) {
        add(hit.line, hit.length);
        // Only the input's last line can lack its line break.
        if (hit.line[hit.length - 1] != '\n')
            add(&lineBreak, 1);
    }
    flush();
}

// Prints every line that matches, best first; lines of equal score keep their input order.
// Like fzy, it matches on every core: the input is cut in two at a line break.
int runFilter(const char *queryArgument)
{
    PageArray<char> storage;
    const std::string_view input = readInput(storage);
    const filter::FilterQuery query = filter::filterQuery(Unicode::fromUtf8(queryArgument));

    size_t middle = input.find('\n', input.size() / 2);
    middle = middle == std::string_view::npos ? input.size() : middle + 1;
    PageArray<FilterHit> firstHits;
    PageArray<FilterHit> secondHits;
    std::thread second([&] { filterLines(input.substr(middle), query, secondHits); });
    filterLines(input.substr(0, middle), query, firstHits);
    second.join();
    PageArray<FilterHit> hits;
    order({&firstHits, &secondHits}, hits);
    print(hits);
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
