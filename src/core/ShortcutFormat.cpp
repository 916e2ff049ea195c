#include "core/ShortcutFormat.h"

#include "core/Text.h"

#include <QChar>
#include <QFile>
#include <QStringDecoder>
#include <QStringEncoder>

#include <plist/plist.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>
#include <vector>

namespace pindle::ShortcutFormat {
namespace {

// libplist parses nested containers recursively, so a deeply nested file could exhaust the
// stack. Shortcuts nest three levels deep; this bound leaves room for anything sensible.
constexpr int maxXmlNesting = 256;
// libplist's XML reader moves the rest of a text along for every character reference it
// replaces, so a megabyte of "&amp;" takes seconds. An address holds a few dozen at most.
constexpr qsizetype maxXmlReferences = 1024;

constexpr QByteArrayView utf8Bom = "\xEF\xBB\xBF";
constexpr QByteArrayView binaryMagic = "bplist";

bool isRegularFileOfShortcutSize(const struct stat &info)
{
    return S_ISREG(info.st_mode) && info.st_size <= maxFileSize;
}

struct FileCloser
{
    void operator()(const int *fd) const { ::close(*fd); }
};

struct PlistFree
{
    void operator()(plist_t node) const { plist_free(node); }
};

bool isAsciiLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Where a comment or CDATA section that starts at `from` ends: just past its end marker, or the
// end of the text.
qsizetype sectionEnd(QByteArrayView xml, qsizetype from, QByteArrayView marker)
{
    const qsizetype at = xml.indexOf(marker, from);
    return at < 0 ? xml.size() : at + marker.size();
}

// An upper bound on how deep libplist's XML reader would nest. Every tag opens a level except
// closing tags, "<name/>", declarations and processing instructions; closing tags inside
// comments and CDATA sections are not believed.
bool nestsTooDeep(QByteArrayView xml)
{
    int depth = 0;
    qsizetype sectionEndsAt = -1;
    for (qsizetype i = xml.indexOf('<'); i >= 0; i = xml.indexOf('<', i + 1)) {
        const QByteArrayView rest = xml.sliced(i + 1);
        const bool isInSection = i < sectionEndsAt;
        if (!isInSection && rest.startsWith("!--")) {
            sectionEndsAt = sectionEnd(xml, i + 4, "-->");
        } else if (!isInSection && rest.startsWith("![CDATA[")) {
            sectionEndsAt = sectionEnd(xml, i + 9, "]]>");
        } else if (rest.startsWith('/')) {
            if (!isInSection)
                depth = std::max(depth - 1, 0);
        } else if (!rest.startsWith('?') && !rest.startsWith('!')) {
            qsizetype nameEnd = 0;
            while (nameEnd < rest.size() && isAsciiLetter(rest[nameEnd]))
                ++nameEnd;
            if (!rest.sliced(nameEnd).startsWith("/>") && ++depth > maxXmlNesting)
                return true;
        }
    }
    return false;
}

// libplist expands a binary list into a tree: an object referred to twice is built twice, so
// a few hundred bytes whose objects share their children unfold into billions of nodes. Before
// it builds anything, the references are followed here as libplist will follow them, counting
// every object reached with its repeats and the bytes of text and data it will copy; past either
// budget, or at anything this walk can't make sense of, the list is refused. A real shortcut
// reaches three objects and well under a kilobyte.
constexpr int maxBinaryObjectsReached = 4096;
constexpr quint64 maxBinaryBytesReached = quint64(4) << 20;

class BinaryPlistWalk
{
public:
    explicit BinaryPlistWalk(QByteArrayView binary) : m_bytes(binary) {}

    bool staysWithinBudget()
    {
        constexpr qsizetype headerSize = 8;
        constexpr qsizetype trailerSize = 32;
        if (m_bytes.size() < headerSize + 1 + trailerSize)
            return false;
        const qsizetype trailer = m_bytes.size() - trailerSize;
        m_offsetSize = quint8(m_bytes[trailer + 6]);
        m_refSize = quint8(m_bytes[trailer + 7]);
        if (m_offsetSize < 1 || m_offsetSize > 8 || m_refSize < 1 || m_refSize > 8)
            return false;
        m_objectCount = number(trailer + 8, 8);
        const quint64 top = number(trailer + 16, 8);
        m_offsetTable = number(trailer + 24, 8);
        // Every offset must fit between the header and the trailer.
        if (m_objectCount == 0 || top >= m_objectCount || m_offsetTable < quint64(headerSize) ||
            m_offsetTable > quint64(trailer) ||
            m_objectCount > (quint64(trailer) - m_offsetTable) / m_offsetSize)
            return false;
        m_end = quint64(m_offsetTable);

        std::vector<quint64> pending{top};
        while (!pending.empty()) {
            const quint64 object = pending.back();
            pending.pop_back();
            if (++m_reached > maxBinaryObjectsReached || !visit(object, pending))
                return false;
        }
        return true;
    }

private:
    quint64 number(quint64 at, int size) const
    {
        quint64 value = 0;
        for (int i = 0; i < size; ++i)
            value = (value << 8) | quint8(m_bytes[qsizetype(at) + i]);
        return value;
    }

    // The count held in a marker's low four bits, or in the integer object after it.
    std::optional<quint64> count(quint64 &at, quint8 marker) const
    {
        if ((marker & 0x0F) != 0x0F)
            return marker & 0x0F;
        if (at >= m_end)
            return std::nullopt;
        const quint8 intMarker = quint8(m_bytes[qsizetype(at)]);
        const int size = 1 << (intMarker & 0x0F);
        if ((intMarker & 0xF0) != 0x10 || size > 8 || m_end - at - 1 < quint64(size))
            return std::nullopt;
        const quint64 value = number(at + 1, size);
        at += 1 + quint64(size);
        return value;
    }

    bool visit(quint64 object, std::vector<quint64> &pending)
    {
        if (object >= m_objectCount)
            return false;
        quint64 at = number(m_offsetTable + object * m_offsetSize, m_offsetSize);
        if (at < 8 || at >= m_end)
            return false;
        const quint8 marker = quint8(m_bytes[qsizetype(at++)]);
        const quint8 type = marker >> 4;
        if (type == 0x0 || type == 0x1 || type == 0x2 || type == 0x3 || type == 0x8)
            return true; // fixed-size values; libplist checks their lengths itself
        const std::optional<quint64> length = count(at, marker);
        if (!length)
            return false;
        const quint64 room = m_end - at;
        switch (type) {
        case 0x4:   // data
        case 0x5:   // ASCII text
        case 0x6:   // UTF-16 text, two bytes a character
        case 0x7: { // UTF-8 text
            const quint64 size = type == 0x6 ? *length * 2 : *length;
            if (*length > room || size > room)
                return false;
            m_bytesReached += size;
            return m_bytesReached <= maxBinaryBytesReached;
        }
        case 0xA:   // array
        case 0xC:   // set
        case 0xD: { // dictionary: keys, then values
            const quint64 refs = type == 0xD ? *length * 2 : *length;
            if (*length > room / m_refSize || refs > room / m_refSize ||
                refs > quint64(maxBinaryObjectsReached))
                return false;
            for (quint64 i = 0; i < refs; ++i)
                pending.push_back(number(at + i * m_refSize, m_refSize));
            return pending.size() <= size_t(maxBinaryObjectsReached);
        }
        default:
            return false;
        }
    }

    QByteArrayView m_bytes;
    int m_offsetSize = 0;
    int m_refSize = 0;
    quint64 m_objectCount = 0;
    quint64 m_offsetTable = 0;
    quint64 m_end = 0; // objects lie before the offset table
    int m_reached = 0;
    quint64 m_bytesReached = 0;
};

// A mark after "url=" would join the "=" into one user-perceived character, and the line then
// does not start with the four characters of the key.
bool extendsPreviousCharacter(QStringView text)
{
    if (text.isEmpty())
        return false;
    const char32_t c = text.size() > 1 && text[0].isHighSurrogate() && text[1].isLowSurrogate()
                           ? QChar::surrogateToUcs4(text[0], text[1])
                           : text[0].unicode();
    switch (QChar::category(c)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
        return true;
    default:
        return c == 0x200C || c == 0x200D;
    }
}

bool startsWithUrlKey(QStringView line)
{
    return line.size() >= 4 && line.first(4).compare(u"url=", Qt::CaseInsensitive) == 0 &&
           !extendsPreviousCharacter(line.sliced(4));
}

} // namespace

bool hasExtension(QStringView fileName, QLatin1StringView extension)
{
    const qsizetype dot = fileName.lastIndexOf(u'.');
    if (dot <= 0 || fileName.size() - dot - 1 != extension.size())
        return false;
    // The extensions asked about are ASCII letters, and no character outside ASCII lower-cases
    // to an ASCII letter other than "k"; comparing ASCII letters case-blind is exact, and saves
    // lower-casing a copy of every name.
    for (qsizetype i = 0; i < extension.size(); ++i) {
        const char16_t c = fileName[dot + 1 + i].unicode();
        if (c >= 0x80 || char(c | 0x20) != extension[i])
            return false;
    }
    return true;
}

std::optional<QByteArrayView> readFile(const QString &path, FileBytes &into)
{
    // The path in the file system's encoding, without an allocation for the usual length.
    char pathBuffer[1024];
    QByteArray longPath;
    const char *nativePath = pathBuffer;
    QStringEncoder encoder(QStringEncoder::Utf8);
    if (encoder.requiredSpace(path.size()) < qsizetype(sizeof pathBuffer)) {
        *encoder.appendToBuffer(pathBuffer, path) = '\0';
    } else {
        longPath = QFile::encodeName(path);
        nativePath = longPath.constData();
    }
    return readFile(nativePath, into);
}

std::optional<QByteArrayView> readFile(const char *nativePath, FileBytes &into)
{
    int fd = ::open(nativePath, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    const std::unique_ptr<int, FileCloser> closer(&fd);
    // Pipes and devices open without blocking and are turned away here, before any read.
    struct stat info = {};
    if (::fstat(fd, &info) != 0 || !isRegularFileOfShortcutSize(info))
        return std::nullopt;

    char *bytes = into.buffer;
    if (info.st_size > qsizetype(sizeof into.buffer)) {
        into.spill.resize(qsizetype(info.st_size));
        bytes = into.spill.data();
    }
    qsizetype filled = 0;
    while (filled < info.st_size) {
        const ssize_t count = ::read(fd, bytes + filled, size_t(info.st_size - filled));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            break;
        filled += count;
    }
    return QByteArrayView(bytes, filled);
}

namespace {

// libplist 2.3 gave plist_from_memory an out-parameter for the format it found; both forms
// are in use (Debian 12 has the older one).
template <typename FromMemory>
void parsePlist(FromMemory fromMemory, QByteArrayView bytes, plist_t *parsed)
{
    if constexpr (std::is_invocable_v<FromMemory, const char *, uint32_t, plist_t *,
                                      std::nullptr_t>)
        fromMemory(bytes.data(), uint32_t(bytes.size()), parsed, nullptr);
    else
        fromMemory(bytes.data(), uint32_t(bytes.size()), parsed);
}

} // namespace

std::optional<QString> plistTarget(QByteArrayView bytes)
{
    if (bytes.startsWith(utf8Bom))
        bytes = bytes.sliced(utf8Bom.size());
    if (bytes.isEmpty() || bytes.size() > maxFileSize)
        return std::nullopt;
    if (bytes.startsWith(binaryMagic) ? !BinaryPlistWalk(bytes).staysWithinBudget()
                                      : bytes.count('&') > maxXmlReferences || nestsTooDeep(bytes))
        return std::nullopt;

    plist_t parsed = nullptr;
    parsePlist(plist_from_memory, bytes, &parsed);
    const std::unique_ptr<void, PlistFree> root(parsed);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT)
        return std::nullopt;
    plist_t value = plist_dict_get_item(root.get(), "URL");
    if (value == nullptr || plist_get_node_type(value) != PLIST_STRING)
        return std::nullopt;
    uint64_t length = 0;
    const char *text = plist_get_string_ptr(value, &length);
    if (text == nullptr)
        return std::nullopt;
    return QString::fromUtf8(text, qsizetype(length));
}

std::optional<QString> iniTarget(QByteArrayView bytes)
{
    // The file names no encoding; text that is not valid UTF-8 is taken as ISO Latin-1, which
    // decodes any bytes.
    QStringDecoder utf8(QStringDecoder::Utf8);
    QString text = utf8(bytes);
    if (utf8.hasError())
        text = QString::fromLatin1(bytes);

    QStringView rest(text);
    while (!rest.isEmpty()) {
        qsizetype end = 0;
        while (end < rest.size() && !Text::isNewline(rest[end].unicode()))
            ++end;
        const QStringView line = Text::withoutWhitespace(rest.first(end));
        rest = rest.sliced(std::min(end + 1, rest.size()));
        if (!startsWithUrlKey(line))
            continue;
        const QStringView value = Text::withoutWhitespace(line.sliced(4));
        if (value.isEmpty())
            return std::nullopt;
        return value.toString();
    }
    return std::nullopt;
}

} // namespace pindle::ShortcutFormat
