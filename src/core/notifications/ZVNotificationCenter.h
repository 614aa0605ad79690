#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/notifications/ZVNotification.h"

// The notifications that the parts of Norvo exchange.
inline constexpr const char* ZVHeartBeatStateDidChangeNotification = "ZVHeartBeatStateDidChangeNotification";
inline constexpr const char* ZVIntegrationProjectTimeDidChangeNotification =
    "ZVIntegrationProjectTimeDidChangeNotification";
inline constexpr const char* ZVIntegrationProjectTimeDidResetNotification =
    "ZVIntegrationProjectTimeDidResetNotification";
inline constexpr const char* ZVIntegrationCenterCurrentProjectDidChangeNotification =
    "ZVIntegrationCenterCurrentProjectDidChangeNotification";
inline constexpr const char* ZVIntegrationAvailableProjectsDidChange = "ZVIntegrationAvailableProjectsDidChange";
inline constexpr const char* ZVIntegrationCenterSynchronizationDidStartNotification =
    "ZVIntegrationCenterSynchronizationDidStartNotification";
inline constexpr const char* ZVIntegrationCenterSynchronizationDidEndNotification =
    "ZVIntegrationCenterSynchronizationDidEndNotification";
/// The centre has read the database and holds its accounts (main thread).
inline constexpr const char* ZVIntegrationCenterDidLoadNotification = "ZVIntegrationCenterDidLoadNotification";
// The current task text while the timer runs; the object is the text, a std::string.
inline constexpr const char* ZVCurrentTaskTextDidChangeNotification = "ZVCurrentTaskTextDidChangeNotification";

// What the desktop tells the domain; the shell posts these on the main thread.
inline constexpr const char* ZVWorkspaceWillSleepNotification = "ZVWorkspaceWillSleepNotification";
inline constexpr const char* ZVWorkspaceDidWakeNotification = "ZVWorkspaceDidWakeNotification";
inline constexpr const char* ZVApplicationWillTerminateNotification = "ZVApplicationWillTerminateNotification";

/// Named notifications within the process. A post runs every observer of
/// that name synchronously on the posting thread, in the order in which they
/// were added, before it returns. Observers may post, add and remove
/// observers from within a notification; an observer removed during a post
/// is not called after its removal.
class ZVNotificationCenter {
public:
    using Observer = std::function<void(const ZVNotification&)>;
    /// Identifies one observation for its removal; 0 is never handed out.
    using Token = std::uint64_t;

    static ZVNotificationCenter& shared();

    ZVNotificationCenter() = default;
    ZVNotificationCenter(const ZVNotificationCenter&) = delete;
    ZVNotificationCenter& operator=(const ZVNotificationCenter&) = delete;

    Token addObserver(const std::string& name, Observer observer);
    /// Unknown and already removed tokens are ignored.
    void removeObserver(Token token);

    void post(const ZVNotification& notification);
    void post(const std::string& name, std::any object = {});

    /// The number of observers of a name (for diagnostics and tests).
    std::size_t observerCount(const std::string& name) const;

private:
    struct Registration {
        Token token;
        std::string name;
        Observer observer;
        bool removed = false;
    };

    mutable std::mutex _mutex;
    Token _lastToken = 0;
    std::vector<std::shared_ptr<Registration>> _registrations;
};
