#include "app/ZVQtTimerFactory.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <cmath>
#include <map>
#include <numeric>
#include <vector>

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
        // A precise timer keeps a short period from drifting visibly.
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

// Every repeating timer of a whole number of half seconds beats on one
// shared metronome, whose period is the largest that all of them divide: the
// one-second clock, the idle check and the autosave then wake the program
// together, once a second, instead of each on its own. A timer fires on the
// first beat at or after its time; a late beat makes no burst of catching up.
class ZVMetronome final {
public:
    static constexpr int grid = 500;

    static ZVMetronome& shared() {
        static auto* metronome = new ZVMetronome();
        return *metronome;
    }

    // Main thread only.
    void add(std::uint64_t identifier, int interval, std::function<void()> tick) {
        // The beats fall on the times of the newest of the fastest timers:
        // a clock started now ticks a whole second after its start, not at
        // some point within the second that an older timer chose.
        bool fastest = true;
        for (const auto& entry : _clients) fastest = fastest && interval <= entry.second.interval;
        _clients[identifier] = {interval, _clock.elapsed() + interval, std::move(tick)};
        _retune(fastest);
    }
    void remove(std::uint64_t identifier) {
        if (_clients.erase(identifier) > 0) _retune();
    }
    std::uint64_t nextIdentifier() { return _nextIdentifier.fetch_add(1); }

private:
    struct Client {
        int interval = 0;
        qint64 due = 0;
        std::function<void()> tick;
    };

    ZVMetronome() {
        _clock.start();
        _timer = new QTimer();
        _timer->setTimerType(Qt::PreciseTimer);
        _timer->moveToThread(application().thread());
        QObject::connect(_timer, &QTimer::timeout, _timer, [this] { _beat(); });
    }

    void _retune(bool restart = false) {
        int period = 0;
        for (const auto& entry : _clients) period = std::gcd(period, entry.second.interval);
        if (period == 0) {
            _timer->stop();
        } else if (restart || period != _timer->interval() || !_timer->isActive()) {
            _timer->start(period);
        }
    }

    void _beat() {
        // A beat may come a little early; what falls due within a quarter of
        // the grid fires now rather than a whole beat late.
        const qint64 now = _clock.elapsed() + grid / 4;
        std::vector<std::uint64_t> due;
        for (const auto& [identifier, client] : _clients)
            if (client.due <= now) due.push_back(identifier);
        for (const std::uint64_t identifier : due) {
            // A tick may end this timer or another one, or make new ones.
            auto found = _clients.find(identifier);
            if (found == _clients.end()) continue;
            Client& client = found->second;
            client.due = std::max(client.due + client.interval, now - grid / 4 + client.interval / 2);
            const std::function<void()> tick = client.tick;
            tick();
        }
    }

    QElapsedTimer _clock;
    QTimer* _timer = nullptr;
    std::map<std::uint64_t, Client> _clients;
    std::atomic<std::uint64_t> _nextIdentifier{1};
};

class ZVMetronomeTimer final : public ZVRepeatingTimer {
public:
    ZVMetronomeTimer(int interval, std::function<void()> tick) : _identifier(ZVMetronome::shared().nextIdentifier()) {
        onMain([identifier = _identifier, interval, tick = std::move(tick)]() mutable {
            ZVMetronome::shared().add(identifier, interval, std::move(tick));
        });
    }
    ~ZVMetronomeTimer() override { invalidate(); }

    void invalidate() override {
        if (!_valid.exchange(false)) return;
        if (!QCoreApplication::instance()) return;
        onMain([identifier = _identifier] { ZVMetronome::shared().remove(identifier); });
    }
    bool isValid() const override { return _valid; }

private:
    std::uint64_t _identifier;
    std::atomic<bool> _valid{true};
};

}  // namespace

std::unique_ptr<ZVRepeatingTimer> ZVQtTimerFactory::makeRepeatingTimer(double intervalSeconds,
                                                                       std::function<void()> tick) {
    const int interval = milliseconds(intervalSeconds);
    if (interval > 0 && interval % ZVMetronome::grid == 0) return std::make_unique<ZVMetronomeTimer>(interval, std::move(tick));
    return std::make_unique<ZVQtRepeatingTimer>(intervalSeconds, std::move(tick));
}

void ZVQtTimerFactory::performAfterDelay(double delaySeconds, std::function<void()> block) {
    const int ms = milliseconds(delaySeconds);
    onMain([ms, block = std::move(block)] { QTimer::singleShot(ms, &application(), block); });
}
