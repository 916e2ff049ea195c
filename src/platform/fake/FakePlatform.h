#pragma once

// In-memory services for tests: they record what Pindle asked for and answer what a test set.

#include "platform/Platform.h"

#include <QSet>
#include <QStringList>

#include <utility>

namespace pindle::platform::fake {

class FakeHotKeyService : public HotKeyService
{
public:
    struct Registration
    {
        std::uint32_t keyCode = 0;
        std::uint32_t modifiers = 0;
        EventHotKeyID id;
    };

    OSStatus installEventHandler(EventHandlerProc handler, void *userData,
                                 EventHandlerRef *outRef) override;
    OSStatus removeEventHandler(EventHandlerRef ref) override;
    OSStatus registerEventHotKey(std::uint32_t keyCode, std::uint32_t modifiers, EventHotKeyID id,
                                 EventHotKeyRef *outRef) override;
    OSStatus unregisterEventHotKey(EventHotKeyRef ref) override;

    // Delivers a press of a registered combination to the handler, as the X server would.
    // False when no handler is installed or the combination is not registered.
    bool press(std::uint32_t keyCode, std::uint32_t modifiers);
    // Delivers an arbitrary event to the installed handler; returns the handler's status.
    std::optional<OSStatus> deliver(const HotKeyEvent &event);

    // Combinations another client holds: registering them fails.
    QSet<std::pair<std::uint32_t, std::uint32_t>> heldElsewhere;
    bool failInstall = false;
    // Registration succeeds but hands back no reference.
    bool returnNullRef = false;

    QList<Registration> registered() const { return m_registrations.values(); }
    bool hasHandler() const { return m_handler != nullptr; }
    int installCount = 0;
    int removeCount = 0;
    int unregisterCount = 0;

private:
    EventHandlerProc m_handler = nullptr;
    void *m_userData = nullptr;
    std::uintptr_t m_nextRef = 1;
    QHash<std::uintptr_t, Registration> m_registrations;
};

class FakeFocusService : public FocusService
{
public:
    std::optional<RunningApplication> frontmostApplication() override { return frontmost; }
    bool isTerminated(const RunningApplication &application) override
    {
        return terminated.contains(application.processIdentifier);
    }
    bool activate(const RunningApplication &application) override
    {
        activated.append(application);
        frontmost = application;
        return true;
    }
    std::int64_t currentProcessIdentifier() override { return ownProcessIdentifier; }

    std::optional<RunningApplication> frontmost;
    QSet<std::int64_t> terminated;
    QList<RunningApplication> activated;
    std::int64_t ownProcessIdentifier = 4242;
};

class FakeWorkspace : public Workspace
{
public:
    bool openFile(const QUrl &file) override
    {
        opened.append(file);
        return true;
    }
    QIcon iconForFile(const QString &) override { return {}; }
    bool moveToTrash(const QUrl &file) override
    {
        if (failTrash)
            return false;
        trashed.append(file.toLocalFile());
        return true;
    }
    void beep() override { ++beeps; }

    QList<QUrl> opened;
    QStringList trashed;
    bool failTrash = false;
    int beeps = 0;
};

class FakePasteboard : public Pasteboard
{
public:
    std::optional<QString> string() override { return text; }
    void clearContents() override
    {
        text.reset();
        ++clears;
    }
    void setString(const QString &value) override { text = value; }

    std::optional<QString> text;
    int clears = 0;
};

// One 1440×900 screen with a 25-point bar at the top unless a test sets others.
class FakeScreens : public Screens
{
public:
    FakeScreens();
    QList<Screen> screens() override { return all; }
    std::optional<Screen> mainScreen() override { return main; }
    QPointF mouseLocation() override { return mouse; }
    // Flips y about the first screen's height, as the X11 backend flips about the primary's.
    QRectF toWindowSystem(const QRectF &frame) override;
    QRectF fromWindowSystem(const QRectF &geometry) override;

    QList<Screen> all;
    std::optional<Screen> main;
    QPointF mouse;
};

class FakeApplication : public Application
{
public:
    void setActivationPolicy(ActivationPolicy policy) override { policies.append(policy); }
    void activateIgnoringOtherApps() override { ++activations; }
    void makeKeyAndOrderFront(QWindow *window) override { keyWindows.append(window); }
    bool isCompositing() override { return compositing; }

    QList<ActivationPolicy> policies;
    int activations = 0;
    QList<QWindow *> keyWindows;
    bool compositing = false;
};

// The fakes, installed as the current services; the pointers stay valid until the next
// setServices().
struct FakePlatform
{
    FakeHotKeyService *hotKeys = nullptr;
    FakeFocusService *focus = nullptr;
    FakeWorkspace *workspace = nullptr;
    FakePasteboard *pasteboard = nullptr;
    FakeScreens *screens = nullptr;
    FakeApplication *application = nullptr;
};

FakePlatform installFakePlatform();

} // namespace pindle::platform::fake
