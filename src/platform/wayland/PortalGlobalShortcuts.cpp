#include "platform/wayland/PortalGlobalShortcuts.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <algorithm>
#include <utility>

QDBusArgument &operator<<(QDBusArgument &argument, const PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

namespace pindle::platform::wayland {
namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
const QString registryInterface = QStringLiteral("org.freedesktop.host.portal.Registry");
const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");
const QString sessionToken = QStringLiteral("pindle");
constexpr uint responseSuccess = 0;

// The shortcuts in a portal answer, by id, with their properties.
QHash<QString, QVariantMap> shortcutsIn(const QVariantMap &results)
{
    QHash<QString, QVariantMap> byId;
    const QVariant value = results.value(QStringLiteral("shortcuts"));
    if (!value.canConvert<QDBusArgument>())
        return byId;
    const auto shortcuts = qdbus_cast<QList<PortalShortcut>>(value.value<QDBusArgument>());
    for (const PortalShortcut &shortcut : shortcuts)
        byId.insert(shortcut.id, shortcut.properties);
    return byId;
}

// A D-Bus object path or string, as portals differ in which they send for a handle.
QString pathIn(const QVariant &value)
{
    if (value.canConvert<QDBusObjectPath>() && value.userType() == qMetaTypeId<QDBusObjectPath>())
        return value.value<QDBusObjectPath>().path();
    return value.toString();
}

} // namespace

PortalGlobalShortcuts::PortalGlobalShortcuts(const QDBusConnection &bus, const QString &appId)
    : m_bus(bus), m_appId(appId)
{
    // QtDBus of Qt 6.4 needs the metatypes known before any message carrying them is handled.
    qRegisterMetaType<QDBusObjectPath>();
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
}

PortalGlobalShortcuts::~PortalGlobalShortcuts()
{
    closeSession();
}

void PortalGlobalShortcuts::bind(const QString &id, const QString &description,
                                 const QKeySequence &keys)
{
    m_wanted[id] = {.description = description, .trigger = trigger(keys)};
    m_unanswered.insert(id);
    scheduleSync();
}

void PortalGlobalShortcuts::release(const QString &id)
{
    m_wanted.erase(id);
    m_unanswered.remove(id);
    // The portal lets go of a session's shortcuts only all at once.
    if (m_wanted.empty())
        closeSession();
}

QString PortalGlobalShortcuts::trigger(const QKeySequence &keys)
{
    if (keys.isEmpty())
        return {};
    const QKeyCombination combination = keys[0];
    const Qt::KeyboardModifiers modifiers = combination.keyboardModifiers();
    QString text;
    if (modifiers.testFlag(Qt::ControlModifier))
        text += QStringLiteral("CTRL+");
    if (modifiers.testFlag(Qt::AltModifier))
        text += QStringLiteral("ALT+");
    if (modifiers.testFlag(Qt::ShiftModifier))
        text += QStringLiteral("SHIFT+");
    if (modifiers.testFlag(Qt::MetaModifier))
        text += QStringLiteral("LOGO+");
    const Qt::Key key = combination.key();
    // xkb names letters by their small keysym.
    if (key >= Qt::Key_A && key <= Qt::Key_Z)
        return text + QChar(u'a' + (key - Qt::Key_A));
    return text + QKeySequence(key).toString(QKeySequence::PortableText);
}

void PortalGlobalShortcuts::scheduleSync()
{
    // Bindings asked for in one go (the two at start-up) travel in one request.
    if (m_isSyncScheduled)
        return;
    m_isSyncScheduled = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_isSyncScheduled = false;
            sync();
        },
        Qt::QueuedConnection);
}

void PortalGlobalShortcuts::sync()
{
    if (m_isBusy || m_unanswered.isEmpty())
        return;
    switch (m_stage) {
    case Stage::idle:
        m_stage = Stage::starting;
        registerApplication();
        break;
    case Stage::starting:
        break;
    case Stage::ready:
        listShortcuts();
        break;
    case Stage::failed:
        fail();
        break;
    }
}

void PortalGlobalShortcuts::registerApplication()
{
    // Portals from 1.19 on learn the id of a program outside a sandbox from this call, and from
    // 1.21 on refuse a session without it; older ones lack the interface, which is harmless.
    m_isBusy = true;
    QDBusMessage call = QDBusMessage::createMethodCall(portalService, portalPath, registryInterface,
                                                       QStringLiteral("Register"));
    call << m_appId << QVariantMap();
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher *finished) {
                finished->deleteLater();
                createSession();
            });
}

void PortalGlobalShortcuts::createSession()
{
    // Plasma 5.27 keeps a session's shortcuts under its token, and takes the shortcuts with the
    // session (it binds nothing on BindShortcuts): a fixed token lets it remember them between
    // runs, and offering them here lets it bind them at all. Later portals ignore the option.
    const QVariantMap options{
        {QStringLiteral("handle_token"), QStringLiteral("pindle%1").arg(m_nextToken++)},
        {QStringLiteral("session_handle_token"), sessionToken},
        {QStringLiteral("shortcuts"), QVariant::fromValue(portalShortcuts())}};
    request(shortcutsInterface, QStringLiteral("CreateSession"), {options},
            [this](uint code, const QVariantMap &results) {
                m_session = pathIn(results.value(QStringLiteral("session_handle")));
                if (code != responseSuccess || m_session.isEmpty()) {
                    fail();
                    return;
                }
                m_bus.connect(portalService, portalPath, shortcutsInterface,
                              QStringLiteral("Activated"), this, SLOT(onActivated(QDBusMessage)));
                m_stage = Stage::ready;
                listShortcuts();
            });
}

void PortalGlobalShortcuts::listShortcuts()
{
    const QStringList asked(m_unanswered.cbegin(), m_unanswered.cend());
    const QVariantMap options{
        {QStringLiteral("handle_token"), QStringLiteral("pindle%1").arg(m_nextToken++)}};
    request(shortcutsInterface, QStringLiteral("ListShortcuts"),
            {QVariant::fromValue(QDBusObjectPath(m_session)), options},
            [this, asked](uint code, const QVariantMap &results) {
                const QHash<QString, QVariantMap> listed = shortcutsIn(results);
                const bool allRemembered =
                    code == responseSuccess &&
                    std::all_of(asked.cbegin(), asked.cend(),
                                [&](const QString &id) { return listed.contains(id); });
                if (allRemembered)
                    settle(asked, results);
                else
                    bindShortcuts();
            });
}

void PortalGlobalShortcuts::bindShortcuts()
{
    const QStringList asked(m_unanswered.cbegin(), m_unanswered.cend());
    // Every shortcut of the session, not only the new ones: binding replaces the session's set.
    const QList<PortalShortcut> shortcuts = portalShortcuts();
    const QVariantMap options{
        {QStringLiteral("handle_token"), QStringLiteral("pindle%1").arg(m_nextToken++)}};
    request(shortcutsInterface, QStringLiteral("BindShortcuts"),
            {QVariant::fromValue(QDBusObjectPath(m_session)), QVariant::fromValue(shortcuts),
             QString(), options},
            [this, asked](uint code, const QVariantMap &results) {
                settle(asked, code == responseSuccess ? results : QVariantMap());
            });
}

QList<PortalShortcut> PortalGlobalShortcuts::portalShortcuts() const
{
    QList<PortalShortcut> shortcuts;
    for (const auto &[id, wanted] : m_wanted)
        shortcuts.append({id,
                          {{QStringLiteral("description"), wanted.description},
                           {QStringLiteral("preferred_trigger"), wanted.trigger}}});
    return shortcuts;
}

void PortalGlobalShortcuts::settle(const QStringList &asked, const QVariantMap &results)
{
    const QHash<QString, QVariantMap> listed = shortcutsIn(results);
    for (const QString &id : asked) {
        // Released meanwhile, or asked again and answered by a later request.
        if (!m_unanswered.remove(id))
            continue;
        const auto wanted = m_wanted.find(id);
        // A shortcut the desktop keeps without a key (the user took it away, or another
        // shortcut holds it) cannot be pressed.
        const auto found = listed.constFind(id);
        const bool hasKey =
            found != listed.constEnd() &&
            !found->value(QStringLiteral("trigger_description")).toString().isEmpty();
        if (wanted != m_wanted.end())
            wanted->second.isBound = hasKey;
        if (hasKey)
            Q_EMIT bound(id);
        else
            Q_EMIT refused(id, ShortcutRefusal::notGiven);
    }
    // More may have been asked for meanwhile.
    sync();
}

void PortalGlobalShortcuts::fail()
{
    m_stage = Stage::failed;
    m_isBusy = false;
    const QSet<QString> unanswered = std::exchange(m_unanswered, {});
    for (const QString &id : unanswered)
        Q_EMIT refused(id, ShortcutRefusal::notGiven);
}

void PortalGlobalShortcuts::request(const QString &interface, const QString &method,
                                    QVariantList arguments, ResponseHandler handler)
{
    m_isBusy = true;
    // The Request object's path is known before the call, so the answer cannot come before
    // we listen for it.
    const QVariantMap &options = arguments.last().toMap();
    const QString sender = m_bus.baseService().mid(1).replace(u'.', u'_');
    const QString expected =
        QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2")
            .arg(sender, options.value(QStringLiteral("handle_token")).toString());
    subscribe(expected, handler);

    QDBusMessage call =
        QDBusMessage::createMethodCall(portalService, portalPath, interface, method);
    call.setArguments(std::move(arguments));
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, expected, handler](QDBusPendingCallWatcher *finished) {
                finished->deleteLater();
                const QDBusPendingReply<QDBusObjectPath> reply = *finished;
                if (reply.isError()) {
                    m_bus.disconnect(portalService, expected, requestInterface,
                                     QStringLiteral("Response"), this,
                                     SLOT(onResponse(QDBusMessage)));
                    m_responses.remove(expected);
                    fail();
                    return;
                }
                // Portals older than the predictable paths answer on another object.
                const QString actual = reply.value().path();
                if (actual != expected && m_responses.contains(expected)) {
                    m_responses.remove(expected);
                    subscribe(actual, handler);
                }
            });
}

void PortalGlobalShortcuts::subscribe(const QString &requestPath, ResponseHandler handler)
{
    m_responses.insert(requestPath, std::move(handler));
    m_bus.connect(portalService, requestPath, requestInterface, QStringLiteral("Response"), this,
                  SLOT(onResponse(QDBusMessage)));
}

void PortalGlobalShortcuts::onResponse(const QDBusMessage &message)
{
    const QString path = message.path();
    m_bus.disconnect(portalService, path, requestInterface, QStringLiteral("Response"), this,
                     SLOT(onResponse(QDBusMessage)));
    const ResponseHandler handler = m_responses.take(path);
    const QVariantList arguments = message.arguments();
    if (!handler || arguments.size() < 2)
        return;
    m_isBusy = false;
    handler(arguments.at(0).toUInt(), qdbus_cast<QVariantMap>(arguments.at(1)));
}

void PortalGlobalShortcuts::onActivated(const QDBusMessage &message)
{
    const QVariantList arguments = message.arguments();
    if (arguments.size() < 2 || pathIn(arguments.at(0)) != m_session)
        return;
    const QString id = arguments.at(1).toString();
    const auto wanted = m_wanted.find(id);
    if (wanted != m_wanted.end() && wanted->second.isBound)
        Q_EMIT activated(id);
}

void PortalGlobalShortcuts::closeSession()
{
    if (m_session.isEmpty())
        return;
    m_bus.disconnect(portalService, portalPath, shortcutsInterface, QStringLiteral("Activated"),
                     this, SLOT(onActivated(QDBusMessage)));
    m_bus.send(QDBusMessage::createMethodCall(portalService, m_session, sessionInterface,
                                              QStringLiteral("Close")));
    m_session.clear();
    m_stage = Stage::idle;
}

} // namespace pindle::platform::wayland
