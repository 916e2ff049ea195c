#pragma once

// The desktop services Qt provides on any window system: files, icons and the Trash, the
// clipboard, and screens converted to the bottom-left, y-up coordinates the panels compute in.

#include "platform/Platform.h"

#include <QHash>
#include <QIcon>
#include <QString>

#include <functional>

namespace pindle::platform {

// Moves a file to the user's freedesktop home Trash. False when it could not be moved; the file
// is then where it was, and nothing was left behind (a file on another file system is refused
// rather than copied).
bool moveFileToTrash(const QString &path);
// The same, for an absolute path in the file system's bytes.
bool moveFileToTrash(const QByteArray &nativePath);

class QtWorkspace : public Workspace
{
public:
    // beep sounds the window system's bell; Qt Gui alone has none.
    explicit QtWorkspace(std::function<void()> beep);
    bool openFile(const QUrl &file) override;
    QIcon iconForFile(const QString &path) override;
    bool moveToTrash(const QUrl &file) override;
    void beep() override;

private:
    std::function<void()> m_beep;
    QHash<QString, QIcon> m_iconsByType; // by MIME type name; a handful at most
};

class QtPasteboard : public Pasteboard
{
public:
    std::optional<QString> string() override;
    void clearContents() override;
    void setString(const QString &text) override;
};

// Frames flip about the bottom edge of the primary screen, whose bottom-left corner is the
// origin, as on the system the panel arithmetic was first written for.
class QtScreens : public Screens
{
public:
    QList<Screen> screens() override;
    std::optional<Screen> mainScreen() override;
    QPointF mouseLocation() override;
    QRectF toWindowSystem(const QRectF &frame) override;
    QRectF fromWindowSystem(const QRectF &geometry) override;
};

} // namespace pindle::platform
