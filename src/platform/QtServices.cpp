#include "platform/QtServices.h"

#include "core/ShortcutURL.h"

#include <QAbstractFileIconProvider>
#include <QClipboard>
#include <QCursor>
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

#include <utility>

namespace pindle::platform {
namespace {

constexpr int fallbackIconSize = 64;

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
    // Qt 6.4 "succeeds" into ./files of the working directory when the data directory is
    // missing, so make sure it exists and check where the file went.
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (dataHome.isEmpty() || !QDir().mkpath(dataHome))
        return false;
    QString pathInTrash;
    if (!QFile::moveToTrash(path, &pathInTrash))
        return false;
    if (QDir::isRelativePath(pathInTrash)) {
        // Put it back rather than leave the user's file somewhere they will never look.
        QFile::rename(QDir::current().absoluteFilePath(pathInTrash), path);
        return false;
    }
    return true;
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
    const QFileInfo info(path);
    const QMimeType mime = QMimeDatabase().mimeTypeForFile(info);
    QIcon icon = QIcon::fromTheme(mime.iconName());
    if (icon.isNull())
        icon = QIcon::fromTheme(mime.genericIconName());
    if (icon.isNull())
        icon = QAbstractFileIconProvider().icon(info);
    if (icon.isNull())
        icon = paintedDocumentIcon();
    return icon;
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
