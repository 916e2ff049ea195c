#pragma once

// Global shortcuts from the desktop portal (org.freedesktop.portal.GlobalShortcuts): one session
// for the life of the program, holding every shortcut bound. A binding the desktop remembers
// from an earlier run is kept as it is rather than asked for again; anything else is asked for
// with the preferred key, which the desktop may grant, change, ask the user about or refuse.

#include "platform/Platform.h"

#include <QDBusConnection>
#include <QHash>
#include <QSet>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <map>

class QDBusArgument;
class QDBusMessage;

// One shortcut as the portal passes it: (sa{sv}).
struct PortalShortcut
{
    QString id;
    QVariantMap properties;
};
QDBusArgument &operator<<(QDBusArgument &argument, const PortalShortcut &shortcut);
const QDBusArgument &operator>>(const QDBusArgument &argument, PortalShortcut &shortcut);
Q_DECLARE_METATYPE(PortalShortcut)

namespace pindle::platform::wayland {

class PortalGlobalShortcuts final : public GlobalShortcuts
{
    Q_OBJECT
public:
    // appId names the program to portals that need to know who asks (those outside a sandbox
    // cannot tell otherwise); the desktop remembers the bindings under it.
    PortalGlobalShortcuts(const QDBusConnection &bus, const QString &appId);
    ~PortalGlobalShortcuts() override;

    // Answers later, once the portal has; every shortcut is refused when there is no portal.
    void bind(const QString &id, const QString &description, const QKeySequence &keys) override;
    void release(const QString &id) override;

    // The portal's form of a key combination: xkb names joined by '+', as "ALT+u".
    static QString trigger(const QKeySequence &keys);

private Q_SLOTS:
    void onResponse(const QDBusMessage &message);
    void onActivated(const QDBusMessage &message);

private:
    enum class Stage
    {
        idle,
        starting,
        ready,
        failed
    };
    struct Wanted
    {
        QString description;
        QString trigger;
        bool isBound = false;
    };
    using ResponseHandler = std::function<void(uint code, const QVariantMap &results)>;

    void scheduleSync();
    void sync();
    void registerApplication();
    void createSession();
    void listShortcuts();
    void bindShortcuts();
    QList<PortalShortcut> portalShortcuts() const;
    // Settles the shortcuts asked about from the portal's list of what it has bound.
    void settle(const QStringList &asked, const QVariantMap &results);
    void fail();
    // Calls a portal method that answers through a Request object, whose Response goes to
    // handler; a call that fails makes the portal unusable.
    void request(const QString &interface, const QString &method, QVariantList arguments,
                 ResponseHandler handler);
    void subscribe(const QString &requestPath, ResponseHandler handler);
    void closeSession();

    QDBusConnection m_bus;
    QString m_appId;
    Stage m_stage = Stage::idle;
    bool m_isBusy = false;
    bool m_isSyncScheduled = false;
    QString m_session;
    std::map<QString, Wanted> m_wanted;
    // Asked for, not yet answered.
    QSet<QString> m_unanswered;
    QHash<QString, ResponseHandler> m_responses;
    int m_nextToken = 1;
};

} // namespace pindle::platform::wayland
