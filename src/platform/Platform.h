#pragma once

// The desktop services Pindle needs, behind small interfaces. One backend is chosen at start-up
// (X11 in the application, fakes in tests) and installed with setServices(); callers reach it
// through services() and never ask which backend runs.

#include <QIcon>
#include <QList>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QUrl>

#include <cstdint>
#include <memory>
#include <optional>

class QWindow;

namespace pindle::platform {

// ---- Global hot keys, shaped like the Carbon Event Manager calls HotKeyManager is written
// against: a status of noErr on success, a non-null reference per registered key, and each press
// delivered to the installed handler on the main thread with its id record.

using OSStatus = std::int32_t;
inline constexpr OSStatus noErr = 0;
inline constexpr OSStatus eventParameterNotFoundErr = -9870;
inline constexpr OSStatus eventInternalErr = -9868;
inline constexpr OSStatus eventHotKeyExistsErr = -9878;
inline constexpr OSStatus eventHotKeyInvalidErr = -9879;

struct EventHotKeyID
{
    std::uint32_t signature = 0;
    std::uint32_t id = 0;
};

struct OpaqueEventHotKeyRef;
using EventHotKeyRef = OpaqueEventHotKeyRef *;
struct OpaqueEventHandlerRef;
using EventHandlerRef = OpaqueEventHandlerRef *;

// A hot-key press as the service hands it to the handler.
struct HotKeyEvent
{
    std::optional<EventHotKeyID> hotKeyID;
};

using EventHandlerProc = OSStatus (*)(void *handlerCallRef, const HotKeyEvent *event,
                                      void *userData);

// GetEventParameter(kEventParamDirectObject, typeEventHotKeyID).
inline OSStatus getEventHotKeyID(const HotKeyEvent *event, EventHotKeyID *out)
{
    if (event == nullptr || !event->hotKeyID || out == nullptr)
        return eventParameterNotFoundErr;
    *out = *event->hotKeyID;
    return noErr;
}

class HotKeyService
{
public:
    virtual ~HotKeyService() = default;
    // One handler for hot-key-pressed events on the application target.
    virtual OSStatus installEventHandler(EventHandlerProc handler, void *userData,
                                         EventHandlerRef *outRef) = 0;
    virtual OSStatus removeEventHandler(EventHandlerRef ref) = 0;
    // keyCode is a macOS virtual key code (32 = U, 34 = I), modifiers the Carbon mask
    // (2048 = Option, which is Alt here). Fails when another client holds the combination.
    virtual OSStatus registerEventHotKey(std::uint32_t keyCode, std::uint32_t modifiers,
                                         EventHotKeyID id, EventHotKeyRef *outRef) = 0;
    virtual OSStatus unregisterEventHotKey(EventHotKeyRef ref) = 0;
};

// ---- The frontmost application and its reactivation.

struct RunningApplication
{
    std::int64_t processIdentifier = 0;
    // The window that made it frontmost (an X11 window id); 0 when unknown.
    std::uint64_t window = 0;
};

class FocusService
{
public:
    virtual ~FocusService() = default;
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
    virtual ~Pasteboard() = default;
    // Nothing when the clipboard holds no text.
    virtual std::optional<QString> string() = 0;
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
    std::unique_ptr<HotKeyService> hotKeys;
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

} // namespace pindle::platform
