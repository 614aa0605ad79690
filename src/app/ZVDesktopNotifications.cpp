#include "app/ZVDesktopNotifications.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QVariantMap>

#include "ZVLog.h"

void ZVDesktopNotifications::show(const QString& title, const QString& text) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected()) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("/org/freedesktop/Notifications"),
            QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
        call << QStringLiteral("Norvo") << _lastNotificationID << QStringLiteral("appointment-soon") << title
             << text << QStringList() << QVariantMap() << 4000;
        // A short timeout: a missing service must not freeze the main thread.
        QDBusReply<unsigned> reply = bus.call(call, QDBus::Block, 2000);
        if (reply.isValid()) {
            _lastNotificationID = reply.value();
            return;
        }
        ZVLog([&] { return "No notification service: " + reply.error().message().toStdString(); });
    }
    if (_fallback) _fallback(title, text);
}
