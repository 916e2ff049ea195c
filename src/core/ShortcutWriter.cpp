#include "core/ShortcutWriter.h"

#include "core/Text.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>

#include <plist/plist.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace pindle::ShortcutWriter {
namespace {

constexpr int temporaryNameAttempts = 16;
// A writer holds its temporary file for well under a second; one this old was left by a writer
// that was killed, on this machine or on another one sharing the folder.
constexpr qint64 abandonedTemporaryAgeSeconds = 10 * 60;

// ".pindle-<pid>-<random>.tmp"; older versions wrote ".pindle-<random>.tmp".
constexpr std::string_view temporaryPrefix = ".pindle-";
constexpr std::string_view temporarySuffix = ".tmp";

// A control character has no business in a file name (and a NUL would end the name early on
// its way to the file system); a name must also reach the file system as it stands, which rules
// out unpaired surrogates.
bool isValidName(const QString &name)
{
    if (name.isEmpty() || name.startsWith(u'.') || name.contains(u'/') || name.contains(u':'))
        return false;
    for (const QChar c : name) {
        if (c.category() == QChar::Other_Control)
            return false;
    }
    return QFile::decodeName(QFile::encodeName(name)) == name;
}

// XML 1.0 has no way to write most control characters, U+FFFE, U+FFFF or unpaired
// surrogates; an address holding one can't be stored in a property list that reads back.
bool isXmlText(QStringView text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < 0x20 && c != u'\t' && c != u'\n' && c != u'\r')
            return false;
        if (c == 0xFFFE || c == 0xFFFF)
            return false;
        if (QChar::isHighSurrogate(c) && i + 1 < text.size() &&
            QChar::isLowSurrogate(text[i + 1].unicode())) {
            ++i;
            continue;
        }
        if (QChar::isSurrogate(c))
            return false;
    }
    return true;
}

std::optional<QByteArray> encodeShortcut(const QString &address)
{
    if (!isXmlText(address))
        return std::nullopt;
    const std::unique_ptr<void, decltype(&plist_free)> dictionary(plist_new_dict(), &plist_free);
    plist_dict_set_item(dictionary.get(), "URL", plist_new_string(address.toUtf8().constData()));
    char *xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(dictionary.get(), &xml, &length);
    if (xml == nullptr)
        return std::nullopt;
    QByteArray bytes(xml, qsizetype(length));
    // libplist allocates with malloc; its own release function changed name in 2.3
    // (plist_to_xml_free, then plist_mem_free), and both are free().
    std::free(xml);
    return bytes;
}

bool writeAll(int fd, const QByteArray &bytes)
{
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count =
            ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        written += count;
    }
    return true;
}

// link() fails when the name is taken, so nothing is ever replaced. File systems without hard
// links get an exclusive rename instead.
bool linkWithoutReplacing(const QByteArray &from, const QByteArray &to)
{
    if (::link(from.constData(), to.constData()) == 0)
        return true;
    if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS)
        return false;
    return ::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0;
}

// The pid in a temporary file's name, when it has one.
std::optional<pid_t> writerOf(std::string_view name)
{
    name.remove_prefix(temporaryPrefix.size());
    const size_t dash = name.find('-');
    if (dash == std::string_view::npos || dash == 0)
        return std::nullopt;
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + dash, pid);
    if (error != std::errc() || end != name.data() + dash || pid <= 0)
        return std::nullopt;
    return pid;
}

// Removes the temporary files that writers killed midway left in the folder: only regular files
// under this writer's own naming (links are looked at, never followed), and only when no live
// writer can own them any more: their writer is gone, or they are too old to be anyone's.
void removeAbandonedTemporaries(const QByteArray &folder)
{
    const int fd = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return;
    DIR *listing = ::fdopendir(fd);
    if (listing == nullptr) {
        ::close(fd);
        return;
    }
    const time_t now = ::time(nullptr);
    while (const dirent *entry = ::readdir(listing)) {
        const std::string_view name(entry->d_name);
        if (!name.starts_with(temporaryPrefix) || !name.ends_with(temporarySuffix) ||
            name.size() <= temporaryPrefix.size() + temporarySuffix.size())
            continue;
        struct stat info = {};
        if (::fstatat(fd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(info.st_mode))
            continue;
        const std::optional<pid_t> writer = writerOf(name);
        const bool writerIsGone = writer && ::kill(*writer, 0) != 0 && errno == ESRCH;
        if (writerIsGone || now - info.st_mtime > abandonedTemporaryAgeSeconds)
            ::unlinkat(fd, entry->d_name, 0);
    }
    ::closedir(listing);
}

// The bytes go to a hidden temporary file in the same folder first, so that no one ever sees a
// half-written shortcut; the temporary name is gone again on every path. Another writer may take
// the name between the caller's look and the link: that is a name already there, as the look
// would have said a moment later.
std::expected<void, WriteError> writeNewFile(const QString &folderPath, const QString &filePath,
                                             const QByteArray &bytes)
{
    const auto failed = std::unexpected(WriteError::writeFailed);
    const QByteArray folder = QFile::encodeName(folderPath);
    QByteArray temporary;
    int fd = -1;
    for (int attempt = 0; fd < 0 && attempt < temporaryNameAttempts; ++attempt) {
        temporary = folder + '/' + temporaryPrefix.data() + QByteArray::number(::getpid()) + '-' +
                    QByteArray::number(QRandomGenerator::global()->generate64(), 36) +
                    temporarySuffix.data();
        fd = ::open(temporary.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                    0666);
        if (fd < 0 && errno != EEXIST)
            return failed;
    }
    if (fd < 0)
        return failed;
    bool isWritten = writeAll(fd, bytes) && ::fsync(fd) == 0;
    isWritten = ::close(fd) == 0 && isWritten;
    const bool isLinked = isWritten && linkWithoutReplacing(temporary, QFile::encodeName(filePath));
    const bool nameWasTaken = isWritten && !isLinked && errno == EEXIST;
    ::unlink(temporary.constData());
    if (nameWasTaken)
        return std::unexpected(WriteError::alreadyExists);
    if (!isLinked)
        return failed;
    return {};
}

} // namespace

std::expected<QUrl, WriteError> create(const QString &name, const QString &url, const QUrl &folder)
{
    const QString trimmedName = Text::trimmedWhitespaceAndNewlines(name);
    const QString address = Text::trimmedWhitespaceAndNewlines(url);
    if (address.isEmpty() || !isValidName(trimmedName))
        return std::unexpected(WriteError::invalidName);

    const QString folderPath = folder.toLocalFile();
    if (folderPath.isEmpty() || folderPath.contains(QChar(u'\0')))
        return std::unexpected(WriteError::writeFailed);
    const QString filePath = (folderPath.endsWith(u'/') ? folderPath : folderPath + u'/') +
                             trimmedName + QStringLiteral(".webloc");
    // Anything at all counts, a dangling link included. A failed look (say, the folder is a file)
    // is not an existing item; the steps below then fail on their own.
    struct stat info = {};
    if (::lstat(QFile::encodeName(filePath).constData(), &info) == 0)
        return std::unexpected(WriteError::alreadyExists);

    if (!QDir().mkpath(folderPath))
        return std::unexpected(WriteError::writeFailed);
    removeAbandonedTemporaries(QFile::encodeName(folderPath));
    const std::optional<QByteArray> bytes = encodeShortcut(address);
    if (!bytes)
        return std::unexpected(WriteError::writeFailed);
    if (const auto written = writeNewFile(folderPath, filePath, *bytes); !written)
        return std::unexpected(written.error());
    return QUrl::fromLocalFile(filePath);
}

} // namespace pindle::ShortcutWriter
