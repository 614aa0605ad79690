#include "preferences/ZVNorvoPreferences.h"

#include "ZVPreferences.h"

namespace {
constexpr const char* kAutoPost = "KDAutomaticallyPostTimeAfterStoppingTimer";
constexpr const char* kRoundingDirection = "KDAutomaticRoundingDirection";
constexpr const char* kRoundingDuration = "KDAutomaticRoundingDuration";
constexpr const char* kAutoRound = "KDAutomaticallyRoundTime";
constexpr const char* kAskedForReview = "KDHeartBeatAskedForReview";
constexpr const char* kDontConfirmMessage = "KDDontConfirmMessageBeforePosting";
constexpr const char* kDontShowPostingConfirmation = "KDDontShowPostingConfirmation";
constexpr const char* kDontDrawSeconds = "KDDontDrawSeconds";
constexpr const char* kHourPrice = "ZVHourPrice";
constexpr const char* kIdleTime = "IdleTime";
constexpr const char* kReceiptDrawerVisible = "KDReceiptDrawerWindowVisible";
constexpr const char* kKeepAtop = "ZVKeepTimeWindowAboveOtherWindows";
constexpr const char* kDontPlayPrintSound = "KDDontPlayPrintSoundWhenShowingLog";
constexpr const char* kResetUponPosting = "KDResetTimerUponPosting";
constexpr const char* kSilenceSyncErrors = "ZVSilenceSyncErrors";
constexpr const char* kDontShowDockIcon = "DontShowIconInDock";
constexpr const char* kTotalBeats = "KDHeartBeatTotalNumberOfBeats";
constexpr const char* kSyncPeriod = "KDIntegrationCenterSyncPeriod";
constexpr const char* kMonochrome = "KDUseMonochromeColors";
constexpr const char* kWarnUnposted = "KDWarnAboutUnpostedTimes";
}  // namespace

ZVNorvoPreferences::ZVNorvoPreferences(ZVPreferences& store) : _store(store) {}

ZVNorvoPreferences ZVNorvoPreferences::shared() { return ZVNorvoPreferences(ZVPreferences::shared()); }

bool ZVNorvoPreferences::isDebugBuild() {
#ifdef NDEBUG
    return false;
#else
    return true;
#endif
}

bool ZVNorvoPreferences::automaticallyPostTimeAfterStoppingTimer() const { return _store.boolean(kAutoPost); }
void ZVNorvoPreferences::setAutomaticallyPostTimeAfterStoppingTimer(bool v) { _store.setBoolean(v, kAutoPost); }

ZVTimeRoundingDirection ZVNorvoPreferences::automaticRoundingDirection() const {
    const std::int64_t raw = _store.integer(kRoundingDirection, 0);
    if (raw < 0 || raw > 2) return static_cast<ZVTimeRoundingDirection>(1);
    return static_cast<ZVTimeRoundingDirection>(raw);
}
void ZVNorvoPreferences::setAutomaticRoundingDirection(ZVTimeRoundingDirection v) {
    _store.setInteger(static_cast<std::int64_t>(v), kRoundingDirection);
}
std::int64_t ZVNorvoPreferences::automaticRoundingDuration() const { return _store.integer(kRoundingDuration, 0); }
void ZVNorvoPreferences::setAutomaticRoundingDuration(std::int64_t v) { _store.setInteger(v, kRoundingDuration); }
bool ZVNorvoPreferences::automaticallyRoundTimeBeforePosting() const { return _store.boolean(kAutoRound); }
void ZVNorvoPreferences::setAutomaticallyRoundTimeBeforePosting(bool v) { _store.setBoolean(v, kAutoRound); }
bool ZVNorvoPreferences::didAskForReview() const { return _store.boolean(kAskedForReview); }

bool ZVNorvoPreferences::displayConfirmationMessageBeforePosting() const { return !_store.boolean(kDontConfirmMessage); }
void ZVNorvoPreferences::setDisplayConfirmationMessageBeforePosting(bool v) { _store.setBoolean(!v, kDontConfirmMessage); }
bool ZVNorvoPreferences::displayPostingConfirmationNotification() const {
    return !_store.boolean(kDontShowPostingConfirmation);
}
void ZVNorvoPreferences::setDisplayPostingConfirmationNotification(bool v) {
    _store.setBoolean(!v, kDontShowPostingConfirmation);
}
bool ZVNorvoPreferences::displaysSecondsInMenuBar() const { return !_store.boolean(kDontDrawSeconds); }
void ZVNorvoPreferences::setDisplaysSecondsInMenuBar(bool v) { _store.setBoolean(!v, kDontDrawSeconds); }

std::optional<double> ZVNorvoPreferences::hourPrice() const {
    std::optional<ZVValue> value = _store.value(kHourPrice);
    return value ? value->real() : std::nullopt;
}
void ZVNorvoPreferences::setHourPrice(std::optional<double> v) {
    if (v)
        _store.setValue(ZVValue(*v), kHourPrice);
    else
        _store.removeValue(kHourPrice);
}

std::int64_t ZVNorvoPreferences::idleTimeDuration() const {
    std::int64_t stored = _store.integer(kIdleTime, 300);
    if (stored <= 59 && !isDebugBuild()) stored *= 60;
    return stored;
}
void ZVNorvoPreferences::setIdleTimeDuration(std::int64_t v) { _store.setInteger(v, kIdleTime); }

bool ZVNorvoPreferences::isReceiptDrawerVisible() const { return _store.boolean(kReceiptDrawerVisible); }
void ZVNorvoPreferences::setReceiptDrawerVisible(bool v) { _store.setBoolean(v, kReceiptDrawerVisible); }
bool ZVNorvoPreferences::keepMainWindowAboveOtherWindows() const { return _store.boolean(kKeepAtop); }
void ZVNorvoPreferences::setKeepMainWindowAboveOtherWindows(bool v) { _store.setBoolean(v, kKeepAtop); }
bool ZVNorvoPreferences::playsPrintSoundWhenShowingLog() const { return !_store.boolean(kDontPlayPrintSound); }
void ZVNorvoPreferences::setPlaysPrintSoundWhenShowingLog(bool v) { _store.setBoolean(!v, kDontPlayPrintSound); }
bool ZVNorvoPreferences::resetsTimerUponSuccessfullyPostingTime() const { return _store.boolean(kResetUponPosting); }
void ZVNorvoPreferences::setResetsTimerUponSuccessfullyPostingTime(bool v) { _store.setBoolean(v, kResetUponPosting); }
bool ZVNorvoPreferences::silenceSyncErrors() const { return _store.boolean(kSilenceSyncErrors); }
void ZVNorvoPreferences::setSilenceSyncErrors(bool v) { _store.setBoolean(v, kSilenceSyncErrors); }
bool ZVNorvoPreferences::showDockIcon() const { return !_store.boolean(kDontShowDockIcon); }
void ZVNorvoPreferences::setShowDockIcon(bool v) { _store.setBoolean(!v, kDontShowDockIcon); }
std::int64_t ZVNorvoPreferences::totalNumberOfHeartBeats() const { return _store.integer(kTotalBeats, 0); }
std::int64_t ZVNorvoPreferences::timeIntervalBetweenSyncs() const { return _store.integer(kSyncPeriod, 3600); }
void ZVNorvoPreferences::setTimeIntervalBetweenSyncs(std::int64_t v) { _store.setInteger(v, kSyncPeriod); }
bool ZVNorvoPreferences::usesMonochromeColors() const { return _store.boolean(kMonochrome); }
void ZVNorvoPreferences::setUsesMonochromeColors(bool v) { _store.setBoolean(v, kMonochrome); }
bool ZVNorvoPreferences::warnsAboutUnpostedTimesBeforeQuitting() const { return _store.boolean(kWarnUnposted); }
void ZVNorvoPreferences::setWarnsAboutUnpostedTimesBeforeQuitting(bool v) { _store.setBoolean(v, kWarnUnposted); }
bool ZVNorvoPreferences::mainWindowIsVisible() const { return _store.boolean(mainWindowIsVisibleKey, true); }
void ZVNorvoPreferences::setMainWindowIsVisible(bool v) { _store.setBoolean(v, mainWindowIsVisibleKey); }

ZVDictionary ZVNorvoPreferences::dictionaryRepresentation() const {
    ZVDictionary result{
        {"automaticallyPostTimeAfterStoppingTimer", automaticallyPostTimeAfterStoppingTimer()},
        {"automaticRoundingDirection", static_cast<std::int64_t>(automaticRoundingDirection())},
        {"automaticRoundingDuration", automaticRoundingDuration()},
        {"automaticallyRoundTimeBeforePosting", automaticallyRoundTimeBeforePosting()},
        {"didAskForReview", didAskForReview()},
        {"displayConfirmationMessageBeforePosting", displayConfirmationMessageBeforePosting()},
        {"displayPostingConfirmationNotification", displayPostingConfirmationNotification()},
        {"displaysSecondsInMenuBar", displaysSecondsInMenuBar()},
        {"idleTimeDuration", idleTimeDuration()},
        {"isReceiptDrawerVisible", isReceiptDrawerVisible()},
        {"keepMainWindowAboveOtherWindows", keepMainWindowAboveOtherWindows()},
        {"playsPrintSoundWhenShowingLog", playsPrintSoundWhenShowingLog()},
        {"resetsTimerUponSuccessfullyPostingTime", resetsTimerUponSuccessfullyPostingTime()},
        {"silenceSyncErrors", silenceSyncErrors()},
        {"showDockIcon", showDockIcon()},
        {"totalNumberOfHeartBeats", totalNumberOfHeartBeats()},
        {"timeIntervalBetweenSyncs", timeIntervalBetweenSyncs()},
        {"usesMonochromeColors", usesMonochromeColors()},
        {"warnsAboutUnpostedTimesBeforeQuitting", warnsAboutUnpostedTimesBeforeQuitting()},
    };
    if (auto price = hourPrice()) result["hourPrice"] = *price;
    if (auto size = _store.value("KDReceiptDrawerWindowFrameSize")) result["receiptDrawerWindowFrameSize"] = *size;
    return result;
}
