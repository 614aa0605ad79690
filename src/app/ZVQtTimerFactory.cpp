#include "app/ZVQtTimerFactory.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThread>
#include <QTimer>
#include <cmath>

#include "ZVLog.h"

namespace {

int milliseconds(double seconds) { return std::max(0, static_cast<int>(std::lround(seconds * 1000.0))); }

QCoreApplication& application() {
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) ZVFatalError("Timers need the application object");
    return *app;
}

bool onMainThread() { return QThread::currentThread() == application().thread(); }

// Runs the block on the main thread: at once there, queued from elsewhere.
void onMain(std::function<void()> block) {
    if (onMainThread())
        block();
    else
        QMetaObject::invokeMethod(&application(), std::move(block), Qt::QueuedConnection);
}

class ZVQtRepeatingTimer final : public ZVRepeatingTimer {
public:
    ZVQtRepeatingTimer(double intervalSeconds, std::function<void()> tick) {
        auto* timer = new QTimer();
        // A precise timer keeps a half-second clock from drifting visibly.
        timer->setTimerType(intervalSeconds < 2.0 ? Qt::PreciseTimer : Qt::CoarseTimer);
        timer->setInterval(milliseconds(intervalSeconds));
        QObject::connect(timer, &QTimer::timeout, timer, std::move(tick));
        if (!onMainThread()) timer->moveToThread(application().thread());
        _timer = timer;
        onMain([timer = QPointer<QTimer>(timer)] {
            if (timer) timer->start();
        });
    }
    ~ZVQtRepeatingTimer() override { invalidate(); }

    void invalidate() override {
        if (!_timer) return;
        QTimer* timer = _timer;
        _timer = nullptr;
        // After the application object is gone (a timer owned by something
        // that outlives main) its loop no longer runs and nothing can fire.
        if (!QCoreApplication::instance()) return;
        if (onMainThread()) {
            timer->stop();
            delete timer;
        } else {
            QMetaObject::invokeMethod(timer, &QTimer::stop, Qt::QueuedConnection);
            timer->deleteLater();
        }
    }
    bool isValid() const override { return _timer != nullptr; }

private:
    QTimer* _timer = nullptr;
};

}  // namespace

std::unique_ptr<ZVRepeatingTimer> ZVQtTimerFactory::makeRepeatingTimer(double intervalSeconds,
                                                                       std::function<void()> tick) {
    return std::make_unique<ZVQtRepeatingTimer>(intervalSeconds, std::move(tick));
}

void ZVQtTimerFactory::performAfterDelay(double delaySeconds, std::function<void()> block) {
    const int ms = milliseconds(delaySeconds);
    onMain([ms, block = std::move(block)] { QTimer::singleShot(ms, &application(), block); });
}
