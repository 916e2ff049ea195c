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

namespace pindle::ShortcutFormat {
namespace {

// libplist parses nested containers recursively, so a deeply nested file could exhaust the
// stack. Shortcuts nest three levels deep; these bounds leave room for anything sensible.
constexpr int maxXmlNesting = 256;
constexpr quint64 maxBinaryObjects = 4096;

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

// libplist refuses references past the object count of the trailer and cycles, so that count
// bounds the nesting of a binary list.
bool hasTooManyObjects(QByteArrayView binary)
{
    constexpr qsizetype trailerSize = 32;
    constexpr qsizetype objectCountOffset = 8;
    if (binary.size() < binaryMagic.size() + 2 + trailerSize)
        return false;
    const QByteArrayView count = binary.last(trailerSize).sliced(objectCountOffset, 8);
    quint64 objects = 0;
    for (char byte : count)
        objects = (objects << 8) | quint8(byte);
    return objects > maxBinaryObjects;
}

bool isNewline(char16_t c)
{
    return c == u'\n' || c == u'\v' || c == u'\f' || c == u'\r' || c == 0x85 || c == 0x2028 ||
           c == 0x2029;
}

QStringView trimmedWhitespace(QStringView text)
{
    while (!text.isEmpty() && Text::isWhitespace(text.front().unicode()))
        text = text.sliced(1);
    while (!text.isEmpty() && Text::isWhitespace(text.back().unicode()))
        text.chop(1);
    return text;
}

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
    if (bytes.startsWith(binaryMagic) ? hasTooManyObjects(bytes) : nestsTooDeep(bytes))
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
        while (end < rest.size() && !isNewline(rest[end].unicode()))
            ++end;
        const QStringView line = trimmedWhitespace(rest.first(end));
        rest = rest.sliced(std::min(end + 1, rest.size()));
        if (!startsWithUrlKey(line))
            continue;
        const QStringView value = trimmedWhitespace(line.sliced(4));
        if (value.isEmpty())
            return std::nullopt;
        return value.toString();
    }
    return std::nullopt;
}

} // namespace pindle::ShortcutFormat
