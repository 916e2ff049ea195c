#include "app/AppDelegate.h"

#include "core/Text.h"
#include "platform/Platform.h"
#include "ui/Alert.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <functional>
#include <utility>

namespace pindle::app {
namespace {

// How long the start-up warning waits for a desktop that has not answered for its keys. Desktops
// that grant keys themselves answer in milliseconds; one that asks the user answers when the user
// does, and the warning should not pile onto its dialog too soon.
constexpr int hotKeyAnswerLimitMilliseconds = 30'000;

// Each panel's key: its id for the desktop (and the argument of the toggle command), the
// description the desktop may show in its settings, the key, and its name in messages.
struct PanelKey
{
    QString id;
    QString description;
    QKeySequence keys;
    QString label;
};

const PanelKey &launcherKey()
{
    static const PanelKey key{QStringLiteral("launcher"), QStringLiteral("Show the launcher"),
                              QKeySequence(Qt::ALT | Qt::Key_U), QStringLiteral("Alt+U")};
    return key;
}

const PanelKey &creatorKey()
{
    static const PanelKey key{QStringLiteral("creator"), QStringLiteral("Show the creator"),
                              QKeySequence(Qt::ALT | Qt::Key_I), QStringLiteral("Alt+I")};
    return key;
}

// How long the compositor may take to give a panel the focus before Pindle gives up on it.
constexpr std::chrono::milliseconds focusWaitTimeout(1000);

constexpr double launcherHeaderHeight = 58;
constexpr double creatorHeaderHeight = 86;

// Whether Alt+I should open the creator for this clipboard text: an http or https address once
// blanks and line breaks around it are ignored, whatever the case of its scheme.
bool isWebAddress(const QString &text)
{
    const QString address = Text::trimmedWhitespaceAndNewlines(text).toLower();
    return address.startsWith(QLatin1String("http://")) ||
           address.startsWith(QLatin1String("https://"));
}

struct HotKeyWarning
{
    QString messageText;
    QString informativeText;
};

// The start-up alert for the keys that could not be registered, in registration order. Keys
// another program holds may come free; keys this desktop does not hand out never will, so then
// the alert gives the command to bind in the desktop's own keyboard settings instead.
HotKeyWarning hotKeyWarning(const QList<HotKeyManager::Failure> &failures)
{
    QStringList names;
    QStringList commands;
    bool isHeldElsewhere = true;
    for (const HotKeyManager::Failure &failure : failures) {
        const PanelKey &key = failure.name == launcherKey().id ? launcherKey() : creatorKey();
        names.append(key.label);
        commands.append(QCoreApplication::applicationFilePath() + QStringLiteral(" --toggle ") +
                        key.id);
        isHeldElsewhere =
            isHeldElsewhere && failure.reason == platform::ShortcutRefusal::heldElsewhere;
    }
    const QString joined = names.join(QStringLiteral(" and "));
    const QString messageText = QStringLiteral("Couldn\u2019t register ") + joined;
    if (!isHeldElsewhere) {
        const QString which =
            names.size() == 1 ? QStringLiteral("this command") : QStringLiteral("these commands");
        return {
            .messageText = messageText,
            .informativeText = QStringLiteral("This desktop didn\u2019t give Pindle ") + joined +
                               QStringLiteral(". Pindle is running: to open it from the "
                                              "keyboard, bind ") +
                               which +
                               QStringLiteral(" to a key in the desktop\u2019s keyboard "
                                              "settings:\n\n") +
                               commands.join(u'\n'),
        };
    }
    const QString which = names.size() == 1 ? QStringLiteral("that shortcut won\u2019t")
                                            : QStringLiteral("those shortcuts won\u2019t");
    return {
        .messageText = messageText,
        .informativeText = QStringLiteral("Another application already owns ") + joined +
                           QStringLiteral(". Pindle is running, but ") + which +
                           QStringLiteral(" open it until the other app releases the key."),
    };
}

// Runs done(true) once window has the focus, or done(false) when it hides or the timeout passes
// first.
void whenFocused(QWidget *window, std::chrono::milliseconds timeout, std::function<void(bool)> done)
{
    if (window->isActiveWindow()) {
        done(true);
        return;
    }
    class Watch final : public QObject
    {
    public:
        Watch(QWidget *window, std::chrono::milliseconds timeout, std::function<void(bool)> done)
            : QObject(window), m_done(std::move(done))
        {
            window->installEventFilter(this);
            QTimer::singleShot(timeout, this, [this] { end(false); });
        }
        bool eventFilter(QObject *, QEvent *event) override
        {
            if (event->type() == QEvent::WindowActivate)
                end(true);
            else if (event->type() == QEvent::Hide)
                end(false);
            return false;
        }

    private:
        void end(bool focused)
        {
            if (!m_done)
                return;
            const auto done = std::exchange(m_done, {});
            deleteLater();
            done(focused);
        }
        std::function<void(bool)> m_done;
    };
    new Watch(window, timeout, std::move(done));
}

} // namespace

AppDelegate::AppDelegate() = default;

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    auto &application = *platform::services().application;
    application.setActivationPolicy(platform::ActivationPolicy::accessory);

    auto *launcherHeader = new QWidget;
    m_launcher = std::make_unique<ui::LauncherController>(launcherHeader, launcherHeaderHeight);
    m_launcher->buildField(launcherHeader);

    auto *creatorHeader = new QWidget;
    m_creator = std::make_unique<ui::CreatorController>(creatorHeader, creatorHeaderHeight);
    m_creator->buildFields(creatorHeader);

    const QPointer<AppDelegate> self(this);
    m_hotKey.registerHotKey(launcherKey().id, launcherKey().description, launcherKey().keys,
                            [self] {
                                if (self)
                                    self->toggleLauncher();
                            });
    m_hotKey.registerHotKey(creatorKey().id, creatorKey().description, creatorKey().keys, [self] {
        if (self)
            self->toggleCreator();
    });
    m_hotKey.whenSettled(hotKeyAnswerLimitMilliseconds,
                         [self](const QList<HotKeyManager::Failure> &failures) {
                             if (self && !failures.isEmpty())
                                 self->warnHotKeysUnavailable(failures);
                         });
}

void AppDelegate::applicationWillTerminate()
{
    m_hotKey.unregisterAll();
}

void AppDelegate::toggle(Panel panel)
{
    if (!m_launcher)
        return;
    if (panel == Panel::creator)
        toggleCreator();
    else
        toggleLauncher();
}

void AppDelegate::showLauncher()
{
    if (m_launcher && !m_launcher->isVisible())
        m_launcher->show();
}

void AppDelegate::toggleLauncher()
{
    if (m_launcher->isVisible())
        m_launcher->hide(true);
    else
        m_launcher->show();
}

void AppDelegate::toggleCreator()
{
    if (m_creator->isVisible()) {
        m_creator->hide(true);
        return;
    }
    // A press while the clipboard's owner is still answering adds nothing to that read.
    if (m_isReadingClipboard)
        return;
    m_isReadingClipboard = true;
    if (!platform::services().pasteboard->isReadableWithoutFocus()) {
        openCreatorThenReadClipboard();
        return;
    }
    const QPointer<AppDelegate> self(this);
    platform::services().pasteboard->requestString([self](std::optional<QString> text) {
        if (!self)
            return;
        self->m_isReadingClipboard = false;
        // Anything but a web address leaves the key without effect: no panel, no sound.
        if (text && isWebAddress(*text))
            self->m_creator->show(*text);
    });
}

void AppDelegate::openCreatorThenReadClipboard()
{
    // Here only a focused window sees the clipboard: the creator opens with no address, and
    // closes again at once, handing the focus back, unless the clipboard holds one.
    m_creator->show(QString());
    const QPointer<AppDelegate> self(this);
    whenFocused(m_creator->panel(), focusWaitTimeout, [self](bool focused) {
        if (!self)
            return;
        if (!focused || !self->m_creator->isVisible()) {
            self->m_isReadingClipboard = false;
            if (self->m_creator->isVisible())
                self->m_creator->hide(true);
            return;
        }
        platform::services().pasteboard->requestString([self](std::optional<QString> text) {
            if (!self)
                return;
            self->m_isReadingClipboard = false;
            if (!self->m_creator->isVisible())
                return;
            if (text && isWebAddress(*text))
                self->m_creator->setURL(*text);
            else
                self->m_creator->hide(true);
        });
    });
}

void AppDelegate::warnHotKeysUnavailable(const QList<HotKeyManager::Failure> &failures)
{
    const HotKeyWarning warning = hotKeyWarning(failures);
    // Also in the log: the command line to bind is easier to copy from there, and a session
    // started without a visible desktop still says why the keys do nothing.
    std::fprintf(stderr, "pindle: %s\n%s\n", qPrintable(warning.messageText),
                 qPrintable(warning.informativeText));
    ui::Alert alert;
    alert.messageText = warning.messageText;
    alert.informativeText = warning.informativeText;
    alert.style = ui::Alert::Style::warning;
    auto &application = *platform::services().application;
    // The alert is the one window Pindle shows outside its panels: let it have a task-bar entry
    // and the focus while it is up.
    application.setActivationPolicy(platform::ActivationPolicy::regular);
    application.activateIgnoringOtherApps();
    alert.runModal();
    application.setActivationPolicy(platform::ActivationPolicy::accessory);
}

} // namespace pindle::app
