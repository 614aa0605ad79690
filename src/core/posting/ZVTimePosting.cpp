#include "core/posting/ZVTimePosting.h"

#include <exception>
#include <optional>
#include <string>

#include "ZVClock.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVPreferences.h"
#include "ZVTime.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/notifications/ZVNotificationCenter.h"
#include "core/ui/ZVUserInterface.h"

namespace {

bool isCurrentProject(const ZVIntegrationProject& project) {
    const auto* center = ZVIntegrationCenter::sharedIfExists();
    return center && center->currentProject().get() == &project;
}

ZVTimeRoundingDirection automaticRoundingDirection() {
    switch (ZVPreferences::shared().integer(ZVTimePosting::automaticRoundingDirectionKey, 0)) {
        case 0: return ZVTimeRoundingDirection::nearest;
        case 2: return ZVTimeRoundingDirection::down;
        default: return ZVTimeRoundingDirection::up;
    }
}

std::optional<std::string> askForTitle(const ZVIntegrationProject& project, const std::string& title) {
    ZVLog([] { return std::string("Asking the user to confirm the the title for posted time."); });
    ZVAlert alert;
    alert.messageText = ZVLocalizedFormat("Please, enter title for the posted time (%@)", {project.fullProjectPath()});
    // The user sees what is about to leave for the service.
    const std::string time = ZVTime::timeString(project.time());
    alert.informativeText = ZVPreferences::shared().boolean(ZVTimePosting::automaticallyRoundTimeKey)
                                ? ZVLocalizedFormat("Time to post: %@, before rounding", {time})
                                : ZVLocalizedFormat("Time to post: %@", {time});
    alert.buttons = {ZVLocalizedString("OK"), ZVLocalizedString("Cancel")};
    return ZVUserInterface::shared().runModalWithTextField(alert, title, false);
}

void roundTime(ZVIntegrationProject& project) {
    const auto duration = ZVPreferences::shared().integer(ZVTimePosting::automaticRoundingDurationKey, 0);
    const std::uint64_t roundingBase = duration > 0 ? static_cast<std::uint64_t>(duration) * 60 : 0;
    const std::uint64_t rounded = ZVTime::round(project.time(), automaticRoundingDirection(), roundingBase);
    project.setTime(rounded);
    if (isCurrentProject(project)) ZVHeartBeat::sharedHeartBeat().setCurrentTime(rounded);
}

// True when the post went through; false when the user gave up.
bool sendUntilPostedOrGivenUp(ZVIntegration& integration, ZVIntegrationProject& project) {
    while (true) {
        ZVLog([] { return std::string("Will be posting time."); });
        std::optional<std::string> failureReason;
        try {
            integration.postTime(project);
            return true;
        } catch (const ZVIntegrationError& error) {
            failureReason = error.localizedFailureReason();
        } catch (const std::exception& error) {
            ZVLog([&] { return std::string("Posting failed: ") + error.what(); });
        }
        ZVAlert alert;
        alert.messageText = ZVLocalizedFormat("Could not post time for '%@'.", {project.name()});
        if (failureReason && !failureReason->empty()) alert.messageText += " " + *failureReason;
        alert.informativeText =
            ZVLocalizedFormat("Check login information, internet connection and %@'s availability. If you believe "
                              "it's a bug, please, go to Preferences > Advanced, enable debug logging, try this "
                              "action again and submit a ticket with the debug log at ",
                              {project.name()}) +
            ZVTimePosting::supportAddress + ".";
        alert.buttons = {ZVLocalizedString("OK"), ZVLocalizedString("Try Again")};
        if (ZVUserInterface::shared().runModal(alert).buttonIndex != 1) return false;
    }
}

}  // namespace

void ZVTimePosting::postTime(ZVIntegrationProject& project) {
    if (project.time() == 0) {
        ZVLogStacktrace("Ignoring an attempt to post time to " + project.fullProjectPath() +
                        " as there is no time tracked.");
        return;
    }
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    if (heartBeat.isBeating()) heartBeat.stop();

    const auto integration = project.requiredIntegration();
    auto& preferences = ZVPreferences::shared();
    auto entry = project.lastTimeLogEntry();
    std::string title = entry ? entry->text() : std::string();

    const bool dontConfirm = preferences.boolean(dontConfirmMessageBeforePostingKey);
    if (!(dontConfirm && (!title.empty() || integration->canPostEmptyTitle()))) {
        auto answer = askForTitle(project, title);
        if (!answer) {
            ZVLog([] { return std::string("postTime - user cancelled."); });
            return;
        }
        title = *answer;
    }

    if (title.empty() && !integration->canPostEmptyTitle()) {
        ZVUserInterface::shared().runModalMessage(
            ZVLocalizedString("Sorry, but the description mustn't be empty."),
            ZVLocalizedString(
                "Fill the description either in the main window (the What are you working on? field), or in the "
                "confirming message, unless it is turned off in the preferences."));
        return;
    }

    if (!entry) {
        ZVLog([] { return std::string("No entry found, creating a new one."); });
        const auto now = ZVNow();
        entry = std::make_shared<ZVTimeLogEntry>(project.shared_from_this());
        entry->setStartDate(now - std::chrono::duration<double>(static_cast<double>(project.time())));
        entry->setStopDate(now);
        project.addLogEntry(entry);
    }
    ZVLog([&] { return "Last time log entry is " + entry->description() + "."; });
    ZVLog([&] { return "Setting entry's text to " + title + "."; });
    entry->setText(title);

    if (preferences.boolean(automaticallyRoundTimeKey)) roundTime(project);

    if (!sendUntilPostedOrGivenUp(*integration, project)) return;

    if (preferences.boolean(resetTimerUponPostingKey)) {
        project.setTime(0);
        if (isCurrentProject(project)) heartBeat.reset();
        ZVNotificationCenter::shared().post(ZVIntegrationProjectTimeDidChangeNotification, project.shared_from_this());
    }
    if (!preferences.boolean(dontShowPostingConfirmationKey)) {
        ZVUserInterface::shared().showBanner(ZVLocalizedString("Posted successfully"), project.fullProjectPath());
    }
}

void ZVTimePosting::postAllTimes() {
    for (const auto& integration : ZVIntegrationCenter::shared().integrations()) postAllTimes(*integration);
}

void ZVTimePosting::postAllTimes(ZVIntegration& integration) {
    for (const auto& project : integration.projectsWithNonZeroTime()) postTime(*project);
}

void ZVIntegrationProject::postTime() { ZVTimePosting::postTime(*this); }
