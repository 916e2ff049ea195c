#include "app/AppDelegate.h"

#include "core/Text.h"
#include "platform/Platform.h"
#include "ui/Alert.h"

#include <QCoreApplication>
#include <QPointer>

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
    const std::optional<QString> text = platform::services().pasteboard->string();
    // Anything but a web address leaves the key without effect: no panel, no sound.
    if (!text || !isWebAddress(*text))
        return;
    m_creator->show(*text);
}

void AppDelegate::warnHotKeysUnavailable(const QList<HotKeyManager::Failure> &failures)
{
    const HotKeyWarning warning = hotKeyWarning(failures);
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
