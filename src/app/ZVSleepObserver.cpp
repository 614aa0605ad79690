#include "app/ZVSleepObserver.h"

#include <QDBusConnection>

#include "ZVLog.h"

ZVSleepObserver::ZVSleepObserver(std::function<void()> willSleep, std::function<void()> didWake, QObject* parent)
    : QObject(parent), _willSleep(std::move(willSleep)), _didWake(std::move(didWake)) {
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected()) {
        ZVLog([] { return std::string("No system bus: sleep and wake are not observed"); });
        return;
    }
    _connected = bus.connect(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                             QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"),
                             this, SLOT(prepareForSleep(bool)));
}

void ZVSleepObserver::prepareForSleep(bool sleeping) {
    ZVLog([sleeping] { return sleeping ? std::string("Computer will sleep") : std::string("Computer woke up"); });
    if (sleeping) {
        if (_willSleep) _willSleep();
    } else if (_didWake) {
        _didWake();
    }
}
