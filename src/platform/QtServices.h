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

// Qt's clipboard. Its read waits in a nested event loop for an owner in another process; the
// window-system backends bound that wait themselves where Qt does not. Where only a focused
// window sees the clipboard (Wayland), say so, so that it is read once a panel has the focus.
class QtPasteboard : public Pasteboard
{
public:
    explicit QtPasteboard(bool isReadableWithoutFocus = true)
        : m_isReadableWithoutFocus(isReadableWithoutFocus)
    {}
    // The text as Qt reads it, synchronously.
    static std::optional<QString> string();
    // Answers done with the clipboard's text when Pindle itself put it there, and says so: Qt
    // holds it, and asking for it through the window system would need this very thread to
    // answer. False, and done untouched, otherwise.
    static bool answerOwnText(StringHandler &done);
    void requestString(StringHandler done) override { done(string()); }
    bool isReadableWithoutFocus() override { return m_isReadableWithoutFocus; }
    void clearContents() override;
    void setString(const QString &text) override;

private:
    bool m_isReadableWithoutFocus;
};

// Frames flip about the bottom edge of the primary screen, whose bottom-left corner is the
// origin, as on the system the panel arithmetic was first written for.
class QtScreens : public Screens
{
public:
    explicit QtScreens(bool canPlaceWindows) : m_canPlaceWindows(canPlaceWindows) {}
    QList<Screen> screens() override;
    std::optional<Screen> mainScreen() override;
    QPointF mouseLocation() override;
    QRectF toWindowSystem(const QRectF &frame) override;
    QRectF fromWindowSystem(const QRectF &geometry) override;
    bool canPlaceWindows() override { return m_canPlaceWindows; }

private:
    bool m_canPlaceWindows;
};

// For desktops that give the focus back to the previous window themselves when a panel hides.
class PassiveFocusService : public FocusService
{
public:
    bool restoresFocusItself() override { return true; }
    std::optional<RunningApplication> frontmostApplication() override { return std::nullopt; }
    bool isTerminated(const RunningApplication &) override { return true; }
    bool activate(const RunningApplication &) override { return false; }
    std::int64_t currentProcessIdentifier() override;
};

// Activation as Qt alone offers it: the window asks for the focus, the desktop decides.
class QtApplication : public Application
{
public:
    explicit QtApplication(bool isCompositing) : m_isCompositing(isCompositing) {}
    // Nothing to do: panels keep out of task bars as tool windows.
    void setActivationPolicy(ActivationPolicy) override {}
    void activateIgnoringOtherApps() override;
    void makeKeyAndOrderFront(QWindow *window) override;
    bool isCompositing() override { return m_isCompositing; }

private:
    bool m_isCompositing;
};

// For a desktop Pindle cannot ask for shortcuts: every one is refused, so the user learns to bind
// the toggle command instead.
class RefusingShortcuts : public GlobalShortcuts
{
public:
    void bind(const QString &id, const QString &, const QKeySequence &) override
    {
        Q_EMIT refused(id, ShortcutRefusal::notGiven);
    }
    void release(const QString &) override {}
};

} // namespace pindle::platform
