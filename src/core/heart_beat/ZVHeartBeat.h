#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ZVThreading.h"
#include "ZVValue.h"
#include "core/notifications/ZVNotificationCenter.h"

class ZVHeartBeatVein;
class ZVIntegrationProject;

/// The one timer of the application. While it runs it counts the seconds of
/// the current project against the wall clock from a remembered start date,
/// so a late or lost tick costs nothing, and tells its veins the clock text
/// every half second. It holds a number, not a project: the current
/// project's time is loaded into it at a change of project and written back
/// at a stop, at the next change of project and at the center's autosave.
class ZVHeartBeat {
public:
    static ZVHeartBeat& sharedHeartBeat();
    /// Drops the shared heart beat so that the next use builds a new one (tests).
    static void resetSharedHeartBeat();

    ZVHeartBeat();
    ~ZVHeartBeat();
    ZVHeartBeat(const ZVHeartBeat&) = delete;
    ZVHeartBeat& operator=(const ZVHeartBeat&) = delete;

    /// Starts counting for the current project; without one, tells the user
    /// that no project is selected. While the projects are still being read
    /// the start waits for them and happens when they are there.
    void start();
    /// Stops counting, writes the time into the current project and saves
    /// its account; a start that waits for the projects is called off.
    void stop();
    /// Whether a start waits for the projects to be read.
    bool startsWhenLoaded() const { return _startsWhenLoaded; }
    /// Stops at quit or logout: the run ends now and its seconds are saved,
    /// with no question asked and nothing posted.
    void stopBeforeQuitting();
    /// Stops, sets the time to zero and writes that into the current project.
    void reset();

    bool isBeating() const;
    std::uint64_t currentTime() const { return _currentTime; }
    /// Takes over a new time; while running, measures on from that value.
    void setCurrentTime(std::uint64_t seconds);
    const std::string& currentTimeString() const { return _currentTimeString; }
    /// All time ever run on this installation, in seconds.
    std::uint64_t totalTime() const { return _totalTime; }

    /// Veins are told in the order in which they were added. Not owned.
    void addVein(ZVHeartBeatVein* vein);
    void removeVein(ZVHeartBeatVein* vein);

    /// Stops a running timer before the computer sleeps and remembers that it ran.
    void computerWillGoToSleep();
    /// Starts the timer again when it ran before the last sleep.
    void computerDidWakeUp();

    /// The "%02i:%02i:%02i" clock text of a number of seconds, hours unbounded.
    static std::string clockString(std::uint64_t seconds);

    /// Where the review prompt's "Rate" leads. Set only in builds that a
    /// store distributes; without it the prompt never shows.
    void setStorePageURL(std::optional<std::string> url) { _storePageURL = std::move(url); }
    /// What posts the current project's time after a stop when the user asked
    /// for automatic posting. Nothing is posted while none is installed.
    void setAutomaticTimePoster(std::function<void(const std::shared_ptr<ZVIntegrationProject>&)> poster) {
        _automaticTimePoster = std::move(poster);
    }

    static constexpr const char* totalNumberOfBeatsKey = "KDHeartBeatTotalNumberOfBeats";
    static constexpr const char* askedForReviewKey = "KDHeartBeatAskedForReview";
    static constexpr const char* automaticallyPostTimeKey = "KDAutomaticallyPostTimeAfterStoppingTimer";
    /// The clock ticks once a second, on the whole seconds of the run.
    static constexpr double tickInterval = 1.0;
    static constexpr double tickLeeway = 0.05;
    /// The review prompt belongs to the first twelve hours of use.
    static constexpr std::uint64_t reviewPromptTimeLimit = 43199;

private:
    // Main thread only.
    bool _startsWhenLoaded = false;
    // The current-project setter of the integration center takes over the
    // measurement directly.
    friend class ZVIntegrationCenter;

    void _updateTime();
    std::uint64_t _runningTime() const;
    void _notifyVeins();
    void _noticeExternalTimeChange();
    void _offerReview();
    /// Restarts the measurement from `seconds` while a timer object exists.
    void _restartMeasurement(std::uint64_t seconds);

    std::unique_ptr<ZVRepeatingTimer> _beat;
    std::uint64_t _currentTime = 0;
    mutable std::recursive_mutex _lock;
    std::optional<ZVDate> _startDate;
    std::uint64_t _timeAtStartDate = 0;
    // The clock's value when it last went into the database's journal.
    std::uint64_t _lastJournaledTime = 0;
    std::uint64_t _totalTime = 0;
    std::vector<ZVHeartBeatVein*> _veins;
    bool _wasRunningWhenWentToSleep = false;
    bool _isQuitting = false;
    std::string _currentTimeString = "00:00:00";

    std::optional<std::string> _storePageURL;
    std::function<void(const std::shared_ptr<ZVIntegrationProject>&)> _automaticTimePoster;
    std::vector<ZVNotificationCenter::Token> _observations;
};
