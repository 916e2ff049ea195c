#pragma once

// The desktop services Pindle needs, behind small interfaces. One backend is chosen at start-up
// from the window system Qt runs on (fakes in tests) and installed with setServices(); callers
// reach it through services() and never ask which backend runs.

#include <QIcon>
#include <QKeySequence>
#include <QList>
#include <QObject>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QUrl>

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>

class QWindow;

namespace pindle::platform {

// ---- System-wide shortcuts, as the desktop grants them: asked for by id, a description the
// desktop may show in its settings, and a key combination. The desktop answers each request
// with bound() or refused(), possibly before bind() returns (a backend that knows at once) or
// much later (one that asks over D-Bus, or asks the user). Presses arrive as activated() on the
// main thread, outside the window system's event handling.

enum class ShortcutRefusal
{
    // Another program holds the combination.
    heldElsewhere,
    // This desktop does not hand out shortcuts, or would not give this one.
    notGiven,
};

class GlobalShortcuts : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;
    // Ids are unique among the shortcuts bound; binding an id again asks again.
    virtual void bind(const QString &id, const QString &description, const QKeySequence &keys) = 0;
    // Lets go of a shortcut; its presses stop. Unknown ids are ignored.
    virtual void release(const QString &id) = 0;

Q_SIGNALS:
    void bound(const QString &id);
    void refused(const QString &id, pindle::platform::ShortcutRefusal reason);
    void activated(const QString &id);
};

// ---- The window that had the focus before a panel opened, and giving it back.

struct RunningApplication
{
    std::int64_t processIdentifier = 0;
    // The window that made it frontmost (a window-system id); 0 when unknown.
    std::uint64_t window = 0;
};

class FocusService
{
public:
    virtual ~FocusService() = default;
    // True where the desktop gives the focus back to the previous window by itself when a panel
    // hides; there is then nothing to capture or restore.
    virtual bool restoresFocusItself() = 0;
    virtual std::optional<RunningApplication> frontmostApplication() = 0;
    virtual bool isTerminated(const RunningApplication &application) = 0;
    // False when the request could not be sent; callers ignore the answer.
    virtual bool activate(const RunningApplication &application) = 0;
    virtual std::int64_t currentProcessIdentifier() = 0;
};

// ---- Files, icons, the Trash, the beep.

class Workspace
{
public:
    virtual ~Workspace() = default;
    // Opens a shortcut file the way a file browser would: an http(s) target in the default
    // browser, anything else with the file's default application. False when nothing opened.
    virtual bool openFile(const QUrl &file) = 0;
    virtual QIcon iconForFile(const QString &path) = 0;
    // False when the file could not be moved; it is then left where it was.
    virtual bool moveToTrash(const QUrl &file) = 0;
    virtual void beep() = 0;
};

// ---- The general pasteboard (the clipboard selection, not the primary selection).

class Pasteboard
{
public:
    // The clipboard's text, or nothing when it holds none, or when its owner has not answered
    // within a bound.
    using StringHandler = std::function<void(std::optional<QString>)>;

    virtual ~Pasteboard() = default;
    // Asks for the clipboard's text. done runs exactly once on the main thread: at once when the
    // answer is at hand, otherwise later, with the event loop running meanwhile, so an owner
    // that never answers freezes nothing.
    virtual void requestString(StringHandler done) = 0;
    // False where only a focused window may see the clipboard: there, read it once a panel has
    // the focus.
    virtual bool isReadableWithoutFocus() = 0;
    virtual void clearContents() = 0;
    virtual void setString(const QString &text) = 0;
};

// ---- Screens and the pointer, in points with the origin at the bottom left of the primary
// screen and y growing upwards; toWindowSystem/fromWindowSystem convert frames at the edge.

struct Screen
{
    QRectF frame;
    QRectF visibleFrame;
};

class Screens
{
public:
    virtual ~Screens() = default;
    virtual QList<Screen> screens() = 0;
    virtual std::optional<Screen> mainScreen() = 0;
    virtual QPointF mouseLocation() = 0;
    virtual QRectF toWindowSystem(const QRectF &frame) = 0;
    virtual QRectF fromWindowSystem(const QRectF &geometry) = 0;
    // False where the compositor alone places top-level windows: the program then only sizes
    // them.
    virtual bool canPlaceWindows() = 0;
};

// ---- This application: activation and its presence in task bars.

enum class ActivationPolicy
{
    regular,
    accessory
};

class Application
{
public:
    virtual ~Application() = default;
    virtual void setActivationPolicy(ActivationPolicy policy) = 0;
    // Brings this application forward, ignoring other applications.
    virtual void activateIgnoringOtherApps() = 0;
    // Raises the window and gives it the keyboard focus.
    virtual void makeKeyAndOrderFront(QWindow *window) = 0;
    // Whether a compositor blends translucent windows with what lies behind them.
    virtual bool isCompositing() = 0;
};

struct Services
{
    std::unique_ptr<GlobalShortcuts> shortcuts;
    std::unique_ptr<FocusService> focus;
    std::unique_ptr<Workspace> workspace;
    std::unique_ptr<Pasteboard> pasteboard;
    std::unique_ptr<Screens> screens;
    std::unique_ptr<Application> application;
};

// The installed backend. Calling it before setServices() is a programming error.
Services &services();
// Replaces the installed backend; the previous one is destroyed.
void setServices(Services backend);

// Call before constructing the application object: Qt aborts when it cannot reach a display, so
// check first. On failure, one line (without a program name) for the caller to print before it
// exits with status 1.
std::expected<void, QString> checkDisplay();

// The backend for the window system Qt runs on (QGuiApplication::platformName()); a desktop
// Pindle has no backend for gets one whose shortcuts are all refused. Needs a QGuiApplication.
Services createServices();

} // namespace pindle::platform
