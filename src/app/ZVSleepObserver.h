#pragma once

#include <QObject>
#include <functional>

/// Tells when the computer is about to sleep and when it woke up, from
/// logind's PrepareForSleep signal on the system bus. Without logind it
/// stays silent.
class ZVSleepObserver final : public QObject {
    Q_OBJECT
public:
    ZVSleepObserver(std::function<void()> willSleep, std::function<void()> didWake, QObject* parent = nullptr);
    /// Whether the signal could be subscribed to.
    bool isConnected() const { return _connected; }

public Q_SLOTS:
    void prepareForSleep(bool sleeping);

private:
    std::function<void()> _willSleep;
    std::function<void()> _didWake;
    bool _connected = false;
};
