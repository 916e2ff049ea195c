#include "core/SearchIndex.h"

#include "core/UnicodeQt.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace pindle::detail {
namespace {

// The bytes of x, all plain ASCII, that lie in [first, last], as their high bits. No byte
// carries into the next.
constexpr uint64_t bytesInRange(uint64_t x, uint8_t first, uint8_t last)
{
    constexpr uint64_t ones = 0x0101010101010101;
    return (x + ones * (0x80 - first)) & ~(x + ones * (0x7F - last)) & (ones * 0x80);
}

// The mask and camel-case hump of a plain ASCII name, given as both its UTF-16 units and its
// bytes. Both run without a chain from one character to the next: four masks are gathered
// side by side, and humps are found eight bytes at a time.
void prepareAscii(PreparedName &prepared, const char16_t *units, const char *text, size_t n)
{
    uint64_t masks[4] = {};
    size_t i = 0;
    for (; i + 4 <= n; i += 4)
        for (size_t k = 0; k < 4; ++k)
            masks[k] |= asciiMaskBits[units[i + k]];
    for (; i < n; ++i)
        masks[0] |= asciiMaskBits[units[i]];

    uint64_t humps = 0;
    uint64_t lowercaseBefore = 0; // the last byte of the previous eight, if lowercase
    for (size_t at = 0; at < n; at += 8) {
        uint64_t bytes = 0; // the text is little-endian in it; missing bytes are zero
        std::memcpy(&bytes, text + at, std::min<size_t>(8, n - at));
        if constexpr (std::endian::native == std::endian::big)
            bytes = std::byteswap(bytes);
        const uint64_t lowercase = bytesInRange(bytes, 'a', 'z');
        humps |= ((lowercase << 8) | lowercaseBefore) & bytesInRange(bytes, 'A', 'Z');
        lowercaseBefore = lowercase >> 56;
    }
    prepared.count = int32_t(n);
    prepared.mask = masks[0] | masks[1] | masks[2] | masks[3];
    prepared.camelHumps = uint8_t(std::min(std::popcount(humps), 255));
}

} // namespace

// Prepared names are stored in blocks, each shared by the names in it: records from the start,
// the character arrays of non-ASCII names from the end.
//
// Fresh memory is what preparing costs most on virtual machines: each new page costs a fault to
// map it and, under shadow paging, a second one on first touch. So a block's pages are mapped
// in one call, small blocks come from the heap (a freed block's pages are reused by the next
// one, and are given back with the rest of the free heap), and a batch of names announced to
// fill huge pages gets blocks of one huge page, which map and touch at the cost of a single
// page. Only such batches do: a huge block that is barely used would double a small
// collection's memory; a small batch's block is sized for the names announced.
struct NameBlock
{
public:
    static constexpr size_t leastSize = size_t(4) << 10;
    static constexpr size_t smallSize = size_t(64) << 10;
    static constexpr size_t largeSize = size_t(2) << 20;
    // What a plain name of usual length takes, with its collation key, to size a batch.
    static constexpr size_t usualNameBytes = sizeof(PreparedName) + 64;

    // expectedCount 0 stands for a batch of unknown size.
    static size_t sizeFor(size_t expectedCount)
    {
        const size_t expectedBytes = expectedCount * usualNameBytes;
        if (expectedBytes >= largeSize)
            return largeSize;
        if (expectedCount == 0)
            return smallSize;
        return std::clamp(expectedBytes, leastSize, smallSize);
    }

    explicit NameBlock(size_t size) : m_size(size), m_arraysAt(size)
    {
        m_memory = size == largeSize ? mapHuge() : static_cast<std::byte *>(std::malloc(size));
        if (m_memory == nullptr)
            return;
        populate(m_memory, size);
    }
    NameBlock(const NameBlock &) = delete;
    NameBlock &operator=(const NameBlock &) = delete;
    ~NameBlock()
    {
        if (m_memory == nullptr)
            return;
        for (size_t i = 0; i < m_count; ++i)
            reinterpret_cast<PreparedName *>(m_memory)[i].~PreparedName();
        if (m_size == largeSize)
            ::munmap(m_memory, m_size);
        else
            std::free(m_memory);
    }

    // A new record with room for arrays of the given size, or null when the block is full.
    PreparedName *take(size_t arrayBytes, std::byte *&arrays)
    {
        arrayBytes = (arrayBytes + alignof(uint32_t) - 1) & ~(alignof(uint32_t) - 1);
        if (m_memory == nullptr || (m_count + 1) * sizeof(PreparedName) + arrayBytes > m_arraysAt)
            return nullptr;
        m_arraysAt -= arrayBytes;
        arrays = m_memory + m_arraysAt;
        return new (m_memory + m_count++ * sizeof(PreparedName)) PreparedName;
    }

private:
    // One huge page's worth, aligned to it so that the kernel can back it with one.
    static std::byte *mapHuge()
    {
        void *mapped = ::mmap(nullptr, 2 * largeSize, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED)
            return nullptr;
        auto *start = static_cast<std::byte *>(mapped);
        auto *aligned = reinterpret_cast<std::byte *>(
            (reinterpret_cast<uintptr_t>(start) + largeSize - 1) & ~(uintptr_t(largeSize) - 1));
        if (aligned > start)
            ::munmap(start, size_t(aligned - start));
        ::munmap(aligned + largeSize, size_t(start + 2 * largeSize - (aligned + largeSize)));
        ::madvise(aligned, largeSize, MADV_HUGEPAGE);
        return aligned;
    }

    // Maps the block's whole pages now, in one call, instead of one fault at a time; pages
    // the heap has used before are already there.
    static void populate(std::byte *memory, size_t size)
    {
        const auto page = uintptr_t(::sysconf(_SC_PAGESIZE));
        const uintptr_t begin = (reinterpret_cast<uintptr_t>(memory) + page - 1) & ~(page - 1);
        const uintptr_t end = (reinterpret_cast<uintptr_t>(memory) + size) & ~(page - 1);
        if (end > begin)
            ::madvise(reinterpret_cast<void *>(begin), end - begin, MADV_POPULATE_WRITE);
    }

    std::byte *m_memory = nullptr;
    size_t m_size;
    size_t m_count = 0;
    size_t m_arraysAt;
};

NameBatch::NameBatch(size_t expectedCount, CharacterIds *ids)
    : m_expectedCount(expectedCount), m_ids(ids)
{}

NameBatch::~NameBatch() = default;

// A record for a name whose non-ASCII description needs arrayBytes, with arrays pointing at
// storage that lives as long as the record.
std::shared_ptr<PreparedName> NameBatch::newName(size_t arrayBytes, std::byte *&arrays)
{
    if (arrayBytes < NameBlock::smallSize / 4) {
        for (int attempt = 0; attempt < 2; ++attempt) {
            if (!m_block)
                m_block = std::make_shared<NameBlock>(NameBlock::sizeFor(m_expectedCount));
            if (PreparedName *name = m_block->take(arrayBytes, arrays))
                return std::shared_ptr<PreparedName>(m_block, name);
            m_block.reset();
        }
    }
    auto name = std::make_shared<PreparedName>();
    name->ownStorage = std::make_unique_for_overwrite<std::byte[]>(arrayBytes);
    arrays = name->ownStorage.get();
    return name;
}

std::shared_ptr<const PreparedName> NameBatch::prepare(const QString &displayName,
                                                       QByteArrayView collationKey)
{
    // The key is stored beside the name's arrays, so that a prepared name costs no allocation
    // of its own.
    const auto keySize = size_t(collationKey.size());
    std::byte *arrays = nullptr;
    std::shared_ptr<PreparedName> prepared;
    const auto *units = reinterpret_cast<const char16_t *>(displayName.utf16());
    if (Unicode::isPlainAscii(Unicode::units(displayName))) {
        const auto n = size_t(displayName.size());
        prepared = newName(n + keySize, arrays);
        auto *text = reinterpret_cast<char *>(arrays);
        for (size_t i = 0; i < n; ++i)
            text[i] = char(units[i]);
        prepared->text = text;
        prepareAscii(*prepared, units, text, n);
        arrays += n;
    } else {
        const UnicodeDescription &description =
            m_describer.describe(Unicode::units(displayName), m_ids);
        if (description.needsIds)
            return nullptr;
        const auto n = size_t(description.ids.size());
        prepared = newName(n * (sizeof(uint32_t) + sizeof(uint8_t)) + keySize, arrays);
        auto *ids = reinterpret_cast<uint32_t *>(arrays);
        auto *flags = reinterpret_cast<uint8_t *>(ids + n);
        std::copy(description.ids.begin(), description.ids.end(), ids);
        std::copy(description.flags.begin(), description.flags.end(), flags);
        prepared->ids = ids;
        prepared->flags = flags;
        prepared->isAscii = false;
        prepared->isMatchable = description.isMatchable;
        prepared->count = description.count;
        prepared->mask = description.mask;
        prepared->camelHumps = uint8_t(std::min<ptrdiff_t>(
            std::count_if(flags, flags + n,
                          [](uint8_t f) { return (f & bonusMask) == camelHumpBonus; }),
            255));
        arrays = reinterpret_cast<std::byte *>(flags + n);
    }
    prepared->name = displayName;
    if (keySize > 0) {
        auto *key = reinterpret_cast<char *>(arrays);
        std::copy(collationKey.begin(), collationKey.end(), key);
        prepared->collationKey = QByteArray::fromRawData(key, qsizetype(keySize));
    }
    return prepared;
}

PreparedQuery prepareQuery(QStringView query, CharacterIds &ids)
{
    return prepareQuery(Unicode::units(query), ids);
}

namespace {

// The prepared data when it was made from this very name; the pointer test settles the usual
// case where both share one string.
bool isCurrent(const PreparedName *prepared, const QString &displayName)
{
    if (prepared == nullptr)
        return false;
    if (prepared->name.constData() == displayName.constData() &&
        prepared->name.size() == displayName.size())
        return true;
    return prepared->name == displayName;
}

} // namespace

void ListIndex::rebuild(const QList<IndexedFile> &list, NameBatch &names)
{
    files = list;
    entries.clear();
    entries.reserve(size_t(list.size()));
    preparedHere.clear();
    hasLastQuery = false;
    for (const IndexedFile &file : list) {
        const PreparedName *name = file.prepared.get();
        if (!isCurrent(name, file.displayName)) {
            preparedHere.push_back(names.prepare(file.displayName, {}));
            name = preparedHere.back().get();
        }
        uint32_t first = 0;
        if (name->isMatchable && name->count > 0)
            first = name->isAscii ? asciiLower(uint8_t(name->text[0])) : name->ids[0];
        entries.push_back({name->mask, name->count, first, name->isMatchable, name->camelHumps,
                           name->isAscii ? name->text : nullptr, name});
    }
}

} // namespace pindle::detail
