#pragma once

// In-memory services for tests: they record what Pindle asked for and answer what a test set.

#include "platform/Platform.h"

#include <QSet>
#include <QStringList>

#include <functional>
#include <utility>

namespace pindle::platform::fake {

// Answers each bind() at once (bound, or refused for the ids in refuse) unless held is set, in
// which case the answers wait for answer().
class FakeGlobalShortcuts : public GlobalShortcuts
{
public:
    struct Request
    {
        QString id;
        QString description;
        QKeySequence keys;
    };

    void bind(const QString &id, const QString &description, const QKeySequence &keys) override;
    void release(const QString &id) override { m_bound.removeAll(id); }

    // Sends the answers held back so far.
    void answer();
    // A press of a bound shortcut, as the desktop would report it. False when it is not bound.
    bool press(const QString &id);

    QHash<QString, ShortcutRefusal> refuse;
    bool held = false;
    QList<Request> requests;
    QStringList boundIds() const { return m_bound; }

private:
    void answerNow(const QString &id);

    QStringList m_bound;
    QStringList m_unanswered;
};

class FakeFocusService : public FocusService
{
public:
    bool restoresFocusItself() override { return restoresItself; }
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
    bool restoresItself = false;
};

class FakeWorkspace : public Workspace
{
public:
    bool openFile(const QUrl &file) override
    {
        opened.append(file);
        if (onOpen)
            onOpen();
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
    std::function<void()> onOpen;
    QStringList trashed;
    bool failTrash = false;
    int beeps = 0;
};

class FakePasteboard : public Pasteboard
{
public:
    // Answers at once unless a test holds the answer back to play an owner that is slow or
    // silent; answer() then delivers the text current at that moment.
    void requestString(StringHandler done) override
    {
        ++requests;
        if (holdAnswers)
            pending.append(std::move(done));
        else
            done(text);
    }
    bool isReadableWithoutFocus() override { return readableWithoutFocus; }
    void answer()
    {
        for (const StringHandler &done : std::exchange(pending, {}))
            done(text);
    }
    void clearContents() override
    {
        text.reset();
        ++clears;
    }
    void setString(const QString &value) override
    {
        text = value;
        if (onSetString)
            onSetString();
    }

    std::optional<QString> text;
    int clears = 0;
    int requests = 0;
    bool holdAnswers = false;
    bool readableWithoutFocus = true;
    std::function<void()> onSetString;
    QList<StringHandler> pending;
};

// One 1440×900 screen with a 25-point bar at the top unless a test sets others.
class FakeScreens : public Screens
{
public:
    FakeScreens();
    QList<Screen> screens() override { return all; }
    std::optional<Screen> mainScreen() override { return main; }
    QPointF mouseLocation() override { return mouse; }
    // Flips y about the first screen's height, as the Qt screens flip about the primary's.
    QRectF toWindowSystem(const QRectF &frame) override;
    QRectF fromWindowSystem(const QRectF &geometry) override;
    bool canPlaceWindows() override { return canPlace; }

    QList<Screen> all;
    std::optional<Screen> main;
    QPointF mouse;
    bool canPlace = true;
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
    FakeGlobalShortcuts *shortcuts = nullptr;
    FakeFocusService *focus = nullptr;
    FakeWorkspace *workspace = nullptr;
    FakePasteboard *pasteboard = nullptr;
    FakeScreens *screens = nullptr;
    FakeApplication *application = nullptr;
};

FakePlatform installFakePlatform();

} // namespace pindle::platform::fake
