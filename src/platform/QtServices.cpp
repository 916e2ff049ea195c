#include "platform/QtServices.h"

#include "core/FileType.h"
#include "core/LocalPath.h"
#include "core/ShortcutURL.h"

#include <QAbstractFileIconProvider>
#include <QClipboard>
#include <QCursor>
#include <QDateTime>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeData>
#include <QMimeDatabase>
#include <QPainter>
#include <QPixmap>
#include <QScreen>
#include <QStandardPaths>
#include <QWindow>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

using namespace Qt::StringLiterals;

namespace pindle::platform {
namespace {

constexpr int fallbackIconSize = 64;
// Names tried in the Trash for files of the same name ("Docs.webloc", "Docs 2.webloc", ...).
constexpr int trashNameAttempts = 1000;

// A folder at path, made (private to the user) when nothing is there; false when something else
// is in its place.
bool isDirectoryOrMade(const QByteArray &path)
{
    if (::mkdir(path.constData(), 0700) == 0)
        return true;
    struct stat info = {};
    return errno == EEXIST && ::stat(path.constData(), &info) == 0 && S_ISDIR(info.st_mode);
}

// A plain page with a folded corner, for systems without any icon theme.
QIcon paintedDocumentIcon()
{
    QPixmap pixmap(fallbackIconSize, fallbackIconSize);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal left = 12, top = 4, right = 52, bottom = 60, fold = 14;
    QPolygonF page;
    page << QPointF(left, top) << QPointF(right - fold, top) << QPointF(right, top + fold)
         << QPointF(right, bottom) << QPointF(left, bottom);
    painter.setPen(QPen(QColor(120, 120, 120), 2));
    painter.setBrush(QColor(250, 250, 250));
    painter.drawPolygon(page);
    painter.drawPolyline(QPolygonF()
                         << QPointF(right - fold, top) << QPointF(right - fold, top + fold)
                         << QPointF(right, top + fold));
    painter.end();
    return QIcon(pixmap);
}

QRectF primaryGeometry()
{
    const QScreen *primary = QGuiApplication::primaryScreen();
    return primary != nullptr ? QRectF(primary->geometry()) : QRectF();
}

} // namespace

bool moveFileToTrash(const QString &path)
{
    return moveFileToTrash(QFile::encodeName(QFileInfo(path).absoluteFilePath()));
}

bool moveFileToTrash(const QByteArray &file)
{
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (dataHome.isEmpty() || !QDir::isAbsolutePath(dataHome) || !file.startsWith('/'))
        return false;
    const QByteArray trash = QFile::encodeName(dataHome + u"/Trash"_s);
    struct stat info = {};
    if (::lstat(file.constData(), &info) != 0)
        return false;
    const dev_t device = info.st_dev;
    // The Trash and its two folders are made as needed, never over something else in their place.
    if (!QDir().mkpath(dataHome) || !isDirectoryOrMade(trash) ||
        !isDirectoryOrMade(trash + "/files") || !isDirectoryOrMade(trash + "/info"))
        return false;
    // A file on another file system would have to be copied: that is a failure, not a copy.
    if (::stat((trash + "/files").constData(), &info) != 0 || info.st_dev != device)
        return false;

    const QByteArray infoText =
        "[Trash Info]\nPath=" + file.toPercentEncoding("/") +
        "\nDeletionDate=" + QDateTime::currentDateTime().toString(Qt::ISODate).left(19).toLatin1() +
        "\n";
    // In the file system's bytes throughout: a name that is not UTF-8 keeps its spelling.
    const QByteArray fileName = file.sliced(file.lastIndexOf('/') + 1);
    const qsizetype dot = fileName.lastIndexOf('.');
    const QByteArray stem = dot > 0 ? fileName.first(dot) : fileName;
    const QByteArray extension = dot > 0 ? fileName.sliced(dot) : QByteArray();
    for (int attempt = 1; attempt <= trashNameAttempts; ++attempt) {
        const QByteArray name =
            attempt == 1 ? fileName : stem + ' ' + QByteArray::number(attempt) + extension;
        // The info file, made exclusively, claims the name; the file follows it, and on failure
        // the claim is withdrawn.
        const QByteArray infoPath = trash + "/info/" + name + ".trashinfo";
        const int fd = ::open(infoPath.constData(),
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno == EEXIST)
            continue;
        if (fd < 0)
            return false;
        const bool isWritten =
            ::write(fd, infoText.constData(), size_t(infoText.size())) == ssize_t(infoText.size());
        if (::close(fd) == 0 && isWritten &&
            ::renameat2(AT_FDCWD, file.constData(), AT_FDCWD,
                        (trash + "/files/" + name).constData(), RENAME_NOREPLACE) == 0)
            return true;
        const bool isNameTaken = isWritten && errno == EEXIST;
        ::unlink(infoPath.constData());
        if (!isNameTaken)
            return false;
    }
    return false;
}

QtWorkspace::QtWorkspace(std::function<void()> beep) : m_beep(std::move(beep)) {}

bool QtWorkspace::openFile(const QUrl &file)
{
    if (const std::optional<QString> target = ShortcutURL::target(file)) {
        const QUrl url(*target);
        const QString scheme = url.scheme().toLower();
        if (url.isValid() && (scheme == QLatin1String("http") || scheme == QLatin1String("https")))
            return QDesktopServices::openUrl(url);
    }
    return QDesktopServices::openUrl(file);
}

QIcon QtWorkspace::iconForFile(const QString &path)
{
    // Qt's own lookups by path open the file, and would wait forever on a pipe put in its place.
    const std::optional<QMimeType> found = FileType::of(path);
    const QMimeType mime =
        found ? *found : QMimeDatabase().mimeTypeForFile(path, QMimeDatabase::MatchExtension);
    // One icon per type, kept for good: the scaled copies drawn from an icon are cached under
    // the icon's identity, so a fresh icon for every row drawn would add copies without end.
    if (const auto cached = m_iconsByType.constFind(mime.name()); cached != m_iconsByType.cend())
        return *cached;
    QIcon icon = QIcon::fromTheme(mime.iconName());
    if (icon.isNull())
        icon = QIcon::fromTheme(mime.genericIconName());
    if (icon.isNull())
        icon = QAbstractFileIconProvider().icon(mime.inherits(QStringLiteral("inode/directory"))
                                                    ? QAbstractFileIconProvider::Folder
                                                    : QAbstractFileIconProvider::File);
    if (icon.isNull())
        icon = paintedDocumentIcon();
    m_iconsByType.insert(mime.name(), icon);
    return icon;
}

bool QtWorkspace::moveToTrash(const QUrl &file)
{
    return moveFileToTrash(LocalPath::nativePath(file));
}

void QtWorkspace::beep()
{
    if (m_beep)
        m_beep();
}

std::optional<QString> QtPasteboard::string()
{
    const QMimeData *data = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
    if (data == nullptr || !data->hasText())
        return std::nullopt;
    return data->text();
}

bool QtPasteboard::answerOwnText(StringHandler &done)
{
    const QClipboard *clipboard = QGuiApplication::clipboard();
    if (clipboard == nullptr || !clipboard->ownsClipboard())
        return false;
    done(string());
    return true;
}

void QtPasteboard::clearContents()
{
    QGuiApplication::clipboard()->clear(QClipboard::Clipboard);
}

void QtPasteboard::setString(const QString &text)
{
    QGuiApplication::clipboard()->setText(text, QClipboard::Clipboard);
}

QList<Screen> QtScreens::screens()
{
    QList<Screen> result;
    for (const QScreen *screen : QGuiApplication::screens())
        result.append(
            {fromWindowSystem(screen->geometry()), fromWindowSystem(screen->availableGeometry())});
    return result;
}

std::optional<Screen> QtScreens::mainScreen()
{
    const QScreen *primary = QGuiApplication::primaryScreen();
    if (primary == nullptr)
        return std::nullopt;
    return Screen{fromWindowSystem(primary->geometry()),
                  fromWindowSystem(primary->availableGeometry())};
}

QPointF QtScreens::mouseLocation()
{
    const QRectF primary = primaryGeometry();
    const QPoint pixel = QCursor::pos();
    // The pixel's row counted from the bottom: a pointer on the top row stays inside the
    // half-open frame of its screen.
    return QPointF(pixel.x() - primary.x(), primary.y() + primary.height() - 1 - pixel.y());
}

QRectF QtScreens::toWindowSystem(const QRectF &frame)
{
    const QRectF primary = primaryGeometry();
    return QRectF(frame.x() + primary.x(),
                  primary.y() + primary.height() - frame.y() - frame.height(), frame.width(),
                  frame.height());
}

QRectF QtScreens::fromWindowSystem(const QRectF &geometry)
{
    const QRectF primary = primaryGeometry();
    return QRectF(geometry.x() - primary.x(),
                  primary.y() + primary.height() - geometry.y() - geometry.height(),
                  geometry.width(), geometry.height());
}

std::int64_t PassiveFocusService::currentProcessIdentifier()
{
    return getpid();
}

void QtApplication::activateIgnoringOtherApps()
{
    if (QWindow *window = QGuiApplication::focusWindow())
        window->requestActivate();
}

void QtApplication::makeKeyAndOrderFront(QWindow *window)
{
    if (window == nullptr)
        return;
    window->show();
    window->raise();
    window->requestActivate();
}

} // namespace pindle::platform
