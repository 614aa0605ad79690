#include "core/heart_beat/ZVHeartBeat.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "ZVClock.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVPreferences.h"
#include "core/heart_beat/ZVHeartBeatVein.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/ui/ZVUserInterface.h"

namespace {

std::unique_ptr<ZVHeartBeat>& sharedInstance() {
    static std::unique_ptr<ZVHeartBeat> instance;
    return instance;
}

/// Whole seconds from `from` to now, whichever way the clock went. A tick
/// lands a hair after its whole second; the leeway keeps the millisecond
/// the timer and the clock may disagree by from showing a second twice.
std::uint64_t wholeSecondsSince(ZVDate from, double leeway = 0) {
    const double seconds = std::fabs((ZVNow() - from).count()) + leeway;
    return seconds >= 9.2e18 ? std::numeric_limits<std::uint64_t>::max() / 2 : static_cast<std::uint64_t>(seconds);
}

/// Counters stop at their largest value instead of wrapping around.
std::uint64_t addSeconds(std::uint64_t counter, std::uint64_t seconds) {
    return counter > std::numeric_limits<std::uint64_t>::max() - seconds ? std::numeric_limits<std::uint64_t>::max()
                                                                          : counter + seconds;
}

}  // namespace

ZVHeartBeat& ZVHeartBeat::sharedHeartBeat() {
    auto& instance = sharedInstance();
    if (!instance) instance = std::make_unique<ZVHeartBeat>();
    return *instance;
}

void ZVHeartBeat::resetSharedHeartBeat() { sharedInstance().reset(); }

ZVHeartBeat::ZVHeartBeat() {
    const std::int64_t storedTotal = ZVPreferences::shared().integer(totalNumberOfBeatsKey, 0);
    if (storedTotal < 0) ZVLog([&] { return "A negative total time is stored (" + std::to_string(storedTotal) + "); it is read as 0"; });
    _totalTime = static_cast<std::uint64_t>(std::max<std::int64_t>(storedTotal, 0));

    auto& notifications = ZVNotificationCenter::shared();
    _observations.push_back(
        notifications.addObserver(ZVWorkspaceWillSleepNotification, [this](const ZVNotification&) { computerWillGoToSleep(); }));
    _observations.push_back(
        notifications.addObserver(ZVWorkspaceDidWakeNotification, [this](const ZVNotification&) { computerDidWakeUp(); }));
    _observations.push_back(notifications.addObserver(ZVIntegrationProjectTimeDidChangeNotification,
                                                      [this](const ZVNotification&) { _noticeExternalTimeChange(); }));
}

ZVHeartBeat::~ZVHeartBeat() {
    for (auto token : _observations) ZVNotificationCenter::shared().removeObserver(token);
    if (_beat) _beat->invalidate();
}

bool ZVHeartBeat::isBeating() const {
    std::lock_guard<std::recursive_mutex> guard(_lock);
    return _beat != nullptr;
}

void ZVHeartBeat::start() {
    if (ZVIntegrationCenter::sharedIsLoading()) {
        if (_startsWhenLoaded) return;
        _startsWhenLoaded = true;
        ZVLog([] { return std::string("The timer starts when the projects are read"); });
        ZVIntegrationCenter::shared().performWhenLoaded([] {
            ZVHeartBeat& heartBeat = sharedHeartBeat();
            if (!heartBeat._startsWhenLoaded) return;
            heartBeat._startsWhenLoaded = false;
            heartBeat.start();
        });
        return;
    }
    bool wasRunning = false;
    {
        std::unique_lock<std::recursive_mutex> guard(_lock);
        if (_beat) {
            wasRunning = true;
        } else if (!ZVIntegrationCenter::shared().currentProject()) {
            guard.unlock();  // no lock is held across an alert
            ZVUserInterface::shared().runModalMessage(
                ZVLocalizedString("No project selected."),
                ZVLocalizedString("You can either add an integration using the + button in the timer window, or add a "
                                  "local project using the pop up button's Norvo menu item."));
            return;
        } else {
            _startDate = ZVNow();
            _timeAtStartDate = _currentTime;
            _beat = ZVTimerFactory::shared().makeRepeatingTimer(tickInterval, [this] { _updateTime(); });
        }
    }
    if (!wasRunning && _startDate) {
        _notifyVeins();
        ZVNotificationCenter::shared().post(ZVHeartBeatStateDidChangeNotification);
    }
}

std::uint64_t ZVHeartBeat::_runningTime() const {
    return std::min(addSeconds(_timeAtStartDate, wholeSecondsSince(*_startDate, tickLeeway)), ZVIntegrationProject::maximumTime);
}

void ZVHeartBeat::_updateTime() {
    if (!_startDate) return;
    _currentTime = _runningTime();
    _notifyVeins();
    // A crash must not take more than a few seconds of the run with it: the
    // running time goes into the database's journal on the beat's own tick.
    const std::uint64_t interval = ZVIntegrationCenter::runningTimeJournalInterval;
    if (_currentTime >= _lastJournaledTime + interval || _currentTime < _lastJournaledTime) {
        _lastJournaledTime = _currentTime;
        if (auto* center = ZVIntegrationCenter::sharedIfExists()) center->journalRunningTime(_currentTime);
    }
}

std::string ZVHeartBeat::clockString(std::uint64_t seconds) {
    const std::uint64_t s = seconds % 60;
    const std::uint64_t m = ((seconds - s) % 3600) / 60;
    const std::uint64_t h = (seconds - s - m * 60) / 3600;
    char text[48];
    const int length = std::snprintf(text, sizeof text, "%02llu:%02llu:%02llu", static_cast<unsigned long long>(h),
                                     static_cast<unsigned long long>(m), static_cast<unsigned long long>(s));
    return std::string(text, static_cast<std::size_t>(std::max(length, 0)));
}

void ZVHeartBeat::_notifyVeins() {
    const std::string text = clockString(_currentTime);
    // By index: a vein may add another while it is told.
    for (std::size_t index = 0; index < _veins.size(); ++index) _veins[index]->heartBeat(*this, text);
    // Veins that read the property while they are told see the previous text.
    _currentTimeString = text;
}

void ZVHeartBeat::stop() {
    // A stop while the projects are read calls off the start that waits for
    // them; the stop of a change of project once they are read does not.
    if (ZVIntegrationCenter::sharedIsLoading()) _startsWhenLoaded = false;
    {
        std::lock_guard<std::recursive_mutex> guard(_lock);
        if (!_beat) return;
        _beat->invalidate();
        _beat.reset();
        // The seconds since the last tick count too.
        if (_startDate) _currentTime = _runningTime();
    }
    ZVNotificationCenter::shared().post(ZVHeartBeatStateDidChangeNotification);
    _notifyVeins();

    auto project = ZVIntegrationCenter::shared().currentProject();
    if (project) {
        project->setTime(_currentTime);
        project->requiredIntegration()->save();
    }

    if (_startDate) _totalTime = addSeconds(_totalTime, wholeSecondsSince(*_startDate));
    _startDate.reset();
    _totalTime = std::min<std::uint64_t>(_totalTime, std::numeric_limits<std::int64_t>::max());
    ZVPreferences::shared().setInteger(static_cast<std::int64_t>(_totalTime), totalNumberOfBeatsKey);

    // Quitting asks nothing and sends nothing: the time is saved and stays unposted.
    if (_isQuitting) return;
    _offerReview();

    if (project && _automaticTimePoster && ZVPreferences::shared().boolean(automaticallyPostTimeKey)) {
        _automaticTimePoster(project);
    }
}

void ZVHeartBeat::stopBeforeQuitting() {
    _isQuitting = true;
    _updateTime();
    stop();
}

void ZVHeartBeat::_offerReview() {
    auto& preferences = ZVPreferences::shared();
    if (_totalTime > reviewPromptTimeLimit || preferences.boolean(askedForReviewKey) || !_storePageURL) return;

    ZVAlert alert;
    alert.messageText = ZVLocalizedString(
        "You seem to be enjoying using Norvo! If you like Norvo, please, rate it on the AppStore.");
    alert.informativeText = ZVLocalizedString("This message will not be shown to you again, don't worry.");
    alert.buttons = {ZVLocalizedString("Rate"), ZVLocalizedString("Cancel")};
    alert.style = ZVAlert::Style::informational;
    const ZVAlertResponse response = ZVUserInterface::shared().runModal(alert);
    if (response.buttonIndex == 0) ZVUserInterface::shared().openURL(*_storePageURL);
    preferences.setBoolean(true, askedForReviewKey);
    preferences.synchronize();
}

void ZVHeartBeat::reset() {
    if (isBeating()) stop();
    _currentTime = 0;
    if (isBeating()) _restartMeasurement(0);
    _notifyVeins();
    if (auto project = ZVIntegrationCenter::shared().currentProject()) {
        project->setTimeWithoutSaving(0);
        project->requiredIntegration()->save();
    }
}

void ZVHeartBeat::setCurrentTime(std::uint64_t seconds) {
    _currentTime = seconds;
    if (isBeating()) _restartMeasurement(seconds);
    _notifyVeins();
}

void ZVHeartBeat::_restartMeasurement(std::uint64_t seconds) {
    _timeAtStartDate = seconds;
    _startDate = ZVNow();
}

void ZVHeartBeat::_noticeExternalTimeChange() {
    auto project = ZVIntegrationCenter::shared().currentProject();
    if (!project || _currentTime == project->time()) return;
    setCurrentTime(project->time());
}

void ZVHeartBeat::addVein(ZVHeartBeatVein* vein) { _veins.push_back(vein); }

void ZVHeartBeat::removeVein(ZVHeartBeatVein* vein) { std::erase(_veins, vein); }

void ZVHeartBeat::computerWillGoToSleep() {
    _wasRunningWhenWentToSleep = isBeating();
    if (_wasRunningWhenWentToSleep) stop();
}

void ZVHeartBeat::computerDidWakeUp() {
    // The flag stays set: only the next sleep decides anew.
    if (_wasRunningWhenWentToSleep) start();
}
