#include "core/actions/ZVIdleTimeHandler.h"

#include <chrono>
#include <cmath>
#include <string>

#include "ZVClock.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVPreferences.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/ui/ZVIdleTimeSource.h"
#include "core/ui/ZVUserInterface.h"

namespace {

std::string dateText(ZVDate date) {
    const auto time = std::chrono::system_clock::to_time_t(std::chrono::time_point_cast<std::chrono::seconds>(date));
    char buffer[32];
    std::tm parts{};
    localtime_r(&time, &parts);
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &parts);
    return buffer;
}

std::uint64_t wholeSeconds(double seconds) {
    if (!(seconds >= 0) || !std::isfinite(seconds)) ZVFatalError("Idle time below 0 or not finite");
    return static_cast<std::uint64_t>(seconds);
}

}  // namespace

ZVIdleTimeHandler::ZVIdleTimeHandler(ZVIdleTimeSource& idleTimeSource) : _idleTimeSource(idleTimeSource) {}

ZVIdleTimeHandler::~ZVIdleTimeHandler() {
    if (_idleTimer) _idleTimer->invalidate();
    for (auto token : _observations) ZVNotificationCenter::shared().removeObserver(token);
}

void ZVIdleTimeHandler::start() {
    if (_idleTimer) return;
    _idleTimer = ZVTimerFactory::shared().makeRepeatingTimer(1.0, [this] { idleCheck(); });
    auto& notifications = ZVNotificationCenter::shared();
    _observations.push_back(
        notifications.addObserver(ZVWorkspaceWillSleepNotification, [this](const ZVNotification&) { computerWillGoToSleep(); }));
    _observations.push_back(
        notifications.addObserver(ZVWorkspaceDidWakeNotification, [this](const ZVNotification&) { computerDidWakeUp(); }));
}

double ZVIdleTimeHandler::_idleTimeThreshold() {
    const auto value = ZVPreferences::shared().integer(idleTimeKey, 0);
    if (value <= 0) return 0;
    if (value >= 60) return static_cast<double>(value);
    return static_cast<double>(value) * 60;
}

void ZVIdleTimeHandler::idleCheck() {
    const double threshold = _idleTimeThreshold();
    // A reading is a round trip to the display server. Idle time grows no
    // faster than the clock: while the last reading and the time since stay
    // a second under the threshold, nobody can have been away that long.
    const auto now = ZVNow();
    if (_lastReadingDate && !_sleepStartDate) {
        const double mostIdle = _idleTimeInterval + std::fabs((now - *_lastReadingDate).count());
        if (threshold == 0 || mostIdle + 1 < threshold) return;
    }
    // Where the desktop does not tell the idle time, the check stays off.
    const auto reading = _idleTimeSource.secondsSinceLastInput();
    if (!reading) return;
    _lastReadingDate = now;
    const double current = *reading;
    _adjustIdleTimeBySleepTime();
    if (threshold != 0 && std::fabs(current) < returnedWithinSeconds && _idleTimeInterval > threshold &&
        ZVHeartBeat::sharedHeartBeat().isBeating()) {
        const auto* center = ZVIntegrationCenter::sharedIfExists();
        if (!center || !center->currentProject()) {
            ZVLog([] { return std::string("Cannot move time back as no project is selected"); });
        } else {
            ZVLog([] { return std::string("Will handle idle time with no sleep."); });
            _handleIdleTime();
        }
    }
    _idleTimeInterval = current;
}

void ZVIdleTimeHandler::computerWillGoToSleep() {
    const auto now = ZVNow();
    ZVLog([&] { return "Computer will go to sleep [" + dateText(now) + "]."; });
    _sleepStartDate = now;
}

void ZVIdleTimeHandler::computerDidWakeUp() {
    ZVLog([] { return "Computer did wake up [" + dateText(ZVNow()) + "]."; });
}

void ZVIdleTimeHandler::_adjustIdleTimeBySleepTime() {
    if (!_sleepStartDate) return;
    const auto now = ZVNow();
    const double slept = std::fabs((now - *_sleepStartDate).count());
    if (slept <= shortestAccountedSleep) return;
    ZVLog([&] {
        return " - adjusting idle time by the time the computer was sleeping: " + std::to_string(slept) + " [" +
               dateText(now) + "]";
    });
    _idleTimeInterval -= slept;
    _sleepStartDate.reset();
}

void ZVIdleTimeHandler::_handleIdleTime() {
    _adjustIdleTimeBySleepTime();
    double idle = _idleTimeInterval;
    _idleTimeInterval = 0;
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    if (!heartBeat.isBeating()) return;
    if (wholeSeconds(idle) > heartBeat.currentTime()) idle = static_cast<double>(heartBeat.currentTime());
    ZVLog([&] { return " - Showing idle dialog - idle for " + std::to_string(idle) + " [" + dateText(ZVNow()) + "]"; });

    auto& ui = ZVUserInterface::shared();
    ui.activateApplication();
    ZVAlert alert;
    // The English texts keep "minutes" for one minute as well.
    const auto thresholdMinutes = wholeSeconds(_idleTimeThreshold() / 60);
    alert.messageText = ZVLocalizedPluralFormat(
        "Your computer has been idle for more than %i minutes. Would you like to move the timer back the idle time?",
        "Your computer has been idle for more than %i minutes. Would you like to move the timer back the idle time?",
        static_cast<unsigned long>(thresholdMinutes), {std::to_string(thresholdMinutes)});
    const auto idleMinutes = wholeSeconds(idle / 60);
    alert.informativeText =
        ZVLocalizedPluralFormat("Your computer has been idle for %i minutes.", "Your computer has been idle for %i minutes.",
                                static_cast<unsigned long>(idleMinutes), {std::to_string(idleMinutes)});
    alert.buttons = {ZVLocalizedString("Move Timer Back"), ZVLocalizedString("Keep Time")};
    alert.ignoresKeyPressesAtFirst = true;
    if (ui.runModal(alert).buttonIndex == 0) {
        heartBeat.setCurrentTime(heartBeat.currentTime() - wholeSeconds(idle));
    }
    heartBeat.start();
}
