#pragma once

#include <memory>

class ZVIntegration;
class ZVIntegrationProject;

/// Sends a project's tracked time to its account's service: stops the
/// timer, settles the title of the posted time with the user, rounds when
/// the user wants that, posts, and then resets and confirms. Every way of
/// posting ends here. Runs on the main thread and blocks during the request;
/// failures are told to the user, never thrown.
class ZVTimePosting {
public:
    static void postTime(ZVIntegrationProject& project);
    /// Posts every project with time of every account of the centre, each
    /// with its own prompts; the local account is not among them.
    static void postAllTimes();
    /// The same for one account.
    static void postAllTimes(ZVIntegration& integration);

    /// Where the failure text sends the user with a debug log.
    static constexpr const char* supportAddress = "norvo@tesselwick.com";

    static constexpr const char* dontConfirmMessageBeforePostingKey = "KDDontConfirmMessageBeforePosting";
    static constexpr const char* automaticallyRoundTimeKey = "KDAutomaticallyRoundTime";
    static constexpr const char* automaticRoundingDirectionKey = "KDAutomaticRoundingDirection";
    static constexpr const char* automaticRoundingDurationKey = "KDAutomaticRoundingDuration";
    static constexpr const char* resetTimerUponPostingKey = "KDResetTimerUponPosting";
    static constexpr const char* dontShowPostingConfirmationKey = "KDDontShowPostingConfirmation";
};
