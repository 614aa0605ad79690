#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ZVTime.h"
#include "ZVValue.h"

class ZVPreferences;

/// The program's settings as typed properties over the preferences store.
/// Several keys are stored under a negative name; their properties read and
/// write the positive meaning, so the stored default false reads as true.
class ZVNorvoPreferences {
public:
    explicit ZVNorvoPreferences(ZVPreferences& store);
    /// Over the shared store.
    static ZVNorvoPreferences shared();

    bool automaticallyPostTimeAfterStoppingTimer() const;
    void setAutomaticallyPostTimeAfterStoppingTimer(bool value);
    /// A stored value that is no direction reads as 1.
    ZVTimeRoundingDirection automaticRoundingDirection() const;
    void setAutomaticRoundingDirection(ZVTimeRoundingDirection value);
    std::int64_t automaticRoundingDuration() const;
    void setAutomaticRoundingDuration(std::int64_t value);
    bool automaticallyRoundTimeBeforePosting() const;
    void setAutomaticallyRoundTimeBeforePosting(bool value);
    bool didAskForReview() const;
    bool displayConfirmationMessageBeforePosting() const;
    void setDisplayConfirmationMessageBeforePosting(bool value);
    bool displayPostingConfirmationNotification() const;
    void setDisplayPostingConfirmationNotification(bool value);
    bool displaysSecondsInMenuBar() const;
    void setDisplaysSecondsInMenuBar(bool value);
    std::optional<double> hourPrice() const;
    void setHourPrice(std::optional<double> value);
    /// Seconds; a stored number of 59 or less counts as minutes (not in debug builds).
    std::int64_t idleTimeDuration() const;
    void setIdleTimeDuration(std::int64_t seconds);
    bool isReceiptDrawerVisible() const;
    void setReceiptDrawerVisible(bool value);
    bool keepMainWindowAboveOtherWindows() const;
    void setKeepMainWindowAboveOtherWindows(bool value);
    bool playsPrintSoundWhenShowingLog() const;
    void setPlaysPrintSoundWhenShowingLog(bool value);
    bool resetsTimerUponSuccessfullyPostingTime() const;
    void setResetsTimerUponSuccessfullyPostingTime(bool value);
    bool silenceSyncErrors() const;
    void setSilenceSyncErrors(bool value);
    bool showDockIcon() const;
    void setShowDockIcon(bool value);
    std::int64_t totalNumberOfHeartBeats() const;
    /// The stored resync period as it stands (the centre applies the floor).
    std::int64_t timeIntervalBetweenSyncs() const;
    void setTimeIntervalBetweenSyncs(std::int64_t seconds);
    bool usesMonochromeColors() const;
    void setUsesMonochromeColors(bool value);
    bool warnsAboutUnpostedTimesBeforeQuitting() const;
    void setWarnsAboutUnpostedTimesBeforeQuitting(bool value);
    /// Defaults to true, unlike every other boolean.
    bool mainWindowIsVisible() const;
    void setMainWindowIsVisible(bool value);

    /// All properties under their property names with their effective values.
    ZVDictionary dictionaryRepresentation() const;

    /// Whether this is a debug build, in which short idle times stay seconds.
    static bool isDebugBuild();

    static constexpr const char* mainWindowIsVisibleKey = "ZVMainWindowIsVisible";
    static constexpr const char* releaseNotesKey = "ZVReleaseNotes847";

private:
    ZVPreferences& _store;
};
