#include "core/actions/ZVActionCenter.h"

#include <chrono>

#include "ZVClock.h"
#include "ZVLocalization.h"
#include "core/actions/ZVTimeEditor.h"
#include "core/actions/ZVTimeMover.h"
#include "core/actions/ZVTimeRounder.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVResetLogEntry.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "core/notifications/ZVNotificationCenter.h"
#include "core/posting/ZVTimePosting.h"
#include "core/ui/ZVTimeActionDialogs.h"
#include "core/ui/ZVUserInterface.h"

ZVActionCenter& ZVActionCenter::shared() {
    static ZVActionCenter center;
    return center;
}

void ZVActionCenter::installHandlers() {
    ZVHeartBeat::sharedHeartBeat().setAutomaticTimePoster(
        [](const ProjectPointer& project) { ZVTimePosting::postTime(*project); });
    ZVIntegrationCenter::shared().setSystemNotificationHandler(
        [this](const ProjectPointer& project) { showSystemNotification(project); });
    ZVIntegration::setPostAllTimesHandler(
        [this](const std::shared_ptr<ZVIntegration>& integration) { postAllTimes(*integration); });
}

void ZVActionCenter::showSystemNotification(const ProjectPointer& project) {
    auto* ui = ZVUserInterface::sharedIfInstalled();
    if (!ui || !project) return;
    ui->showBanner(project->fullProjectPath(), std::string());
}

void ZVActionCenter::resetTimer() {
    auto& ui = ZVUserInterface::shared();
    ui.activateApplication();
    const auto project = ZVIntegrationCenter::sharedCurrentProject();
    if (!project) {
        ui.runModalMessage(ZVLocalizedString("No project is selected."),
                           ZVLocalizedString("You need to select a project before modifying the timer."));
        return;
    }
    ZVAlert confirmation;
    confirmation.messageText = ZVLocalizedString("Are you sure you want to reset the timer?");
    confirmation.informativeText = ZVLocalizedString(
        "Resetting the timer will set the current time to 00:00:00. This action cannot be undone.");
    confirmation.buttons = {ZVLocalizedString("Reset"), ZVLocalizedString("Cancel")};
    if (ui.runModal(confirmation).buttonIndex == 1) return;

    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    heartBeat.stop();
    project->addLogEntry(std::make_shared<ZVResetLogEntry>(project));
    project->setTime(0);
    // Takes the measurement over from 0 when the timer still runs, and
    // tells the veins.
    heartBeat.setCurrentTime(0);
    ZVNotificationCenter::shared().post(ZVIntegrationProjectTimeDidResetNotification, project);
}

void ZVActionCenter::roundTime(const ProjectPointer& project) {
    ZVHeartBeat::sharedHeartBeat().stop();
    ZVTimeRounder rounder(project);
    ZVUserInterface::shared().activateApplication();
    ZVTimeActionDialogs::shared().runTimeRounding(rounder);
}

void ZVActionCenter::postAllTimes() { ZVTimePosting::postAllTimes(); }

void ZVActionCenter::postAllTimes(ZVIntegration& integration) { ZVTimePosting::postAllTimes(integration); }

void ZVActionCenter::timeEntryTextHasChanged(const std::string& taskText) {
    const auto project = ZVIntegrationCenter::sharedCurrentProject();
    if (!project) return;
    // While the timer runs, the text is the title of the open run, which
    // reaches the log only at the stop: the finished runs keep their own.
    if (ZVHeartBeat::sharedHeartBeat().isBeating()) {
        ZVNotificationCenter::shared().post(ZVCurrentTaskTextDidChangeNotification, taskText);
        return;
    }
    if (auto entry = project->lastTimeLogEntry()) {
        entry->setText(taskText);
        return;
    }
    const auto now = ZVNow();
    auto entry = std::make_shared<ZVTimeLogEntry>(project);
    entry->setStartDate(now - std::chrono::duration<double>(static_cast<double>(project->time())));
    entry->setStopDate(now);
    entry->setText(taskText);
    project->addLogEntry(entry);
}

void ZVActionCenter::postTime(const std::string& taskText) {
    timeEntryTextHasChanged(taskText);
    const auto project = ZVIntegrationCenter::sharedCurrentProject();
    if (!project) {
        ZVUserInterface::shared().beep();
        return;
    }
    const auto integration = project->integration();
    if (integration && integration->isLocalAccount()) {
        ZVUserInterface::shared().beep();
        return;
    }
    ZVTimePosting::postTime(*project);
}

void ZVActionCenter::toggleTimer() {
    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    if (heartBeat.isBeating() || heartBeat.startsWhenLoaded()) {
        heartBeat.stop();
    } else {
        heartBeat.start();
    }
}

void ZVActionCenter::showTimeRounding() {
    if (const auto project = ZVIntegrationCenter::sharedCurrentProject()) {
        roundTime(project);
    } else {
        ZVUserInterface::shared().beep();
    }
}

void ZVActionCenter::showTimeEditing() {
    if (const auto project = ZVIntegrationCenter::sharedCurrentProject()) ZVTimeEditor(project).editTime();
}

void ZVActionCenter::changeTime(ZVTimeAction action, ZVTimeActionDirection direction) {
    ZVTimeMover(action, direction).changeTime();
}
