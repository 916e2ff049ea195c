#include "app/AppDelegate.h"

#include "core/Text.h"
#include "platform/Platform.h"
#include "ui/Alert.h"

#include <QEvent>
#include <QPointer>
#include <QTimer>

#include <chrono>
#include <functional>
#include <utility>

namespace pindle::app {
namespace {

// Carbon's virtual key codes and Option mask, which the hot-key service maps to U, I and Alt.
constexpr int keyCodeU = 32;
constexpr int keyCodeI = 34;
constexpr int optionModifier = 2048;

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

// The start-up alert for the keys that could not be registered, named in registration order.
HotKeyWarning hotKeyWarning(const QStringList &names)
{
    const QString joined = names.join(QStringLiteral(" and "));
    const QString which = names.size() == 1 ? QStringLiteral("that shortcut won\u2019t")
                                            : QStringLiteral("those shortcuts won\u2019t");
    return {
        .messageText = QStringLiteral("Couldn\u2019t register ") + joined,
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

    QStringList failed;
    const QPointer<AppDelegate> self(this);
    if (!m_hotKey.registerHotKey(keyCodeU, optionModifier, [self] {
            if (self)
                self->toggleLauncher();
        }))
        failed.append(QStringLiteral("\u2325U"));
    if (!m_hotKey.registerHotKey(keyCodeI, optionModifier, [self] {
            if (self)
                self->toggleCreator();
        }))
        failed.append(QStringLiteral("\u2325I"));
    if (!failed.isEmpty())
        warnHotKeysUnavailable(failed);
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

void AppDelegate::warnHotKeysUnavailable(const QStringList &names)
{
    const HotKeyWarning warning = hotKeyWarning(names);
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
