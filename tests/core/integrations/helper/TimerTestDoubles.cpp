#include "core/integrations/helper/TimerTestDoubles.h"

#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/local/ZVNorvoIntegration.h"

namespace norvo_timer_tests {

std::shared_ptr<RecordingIntegration> RecordingIntegration::make(const std::string& name, bool writesThrough) {
    auto account = ZVIntegration::makeNew<RecordingIntegration>();
    account->setName(name);
    account->writesThrough = writesThrough;
    return account;
}

ZVAlertResponse ScriptedUserInterface::runModal(const ZVAlert& alert) {
    alerts.push_back(alert);
    ZVAlertResponse response;
    if (!answers.empty()) {
        response.buttonIndex = answers.front();
        answers.pop_front();
    }
    return response;
}

std::optional<std::string> ScriptedUserInterface::runModalWithTextField(const ZVAlert& alert, const std::string&,
                                                                        bool) {
    alerts.push_back(alert);
    return std::nullopt;
}

void ScriptedUserInterface::showBanner(const std::string& title, const std::string& text) {
    banners.push_back(title + ": " + text);
}

bool ScriptedUserInterface::openURL(const std::string& url) {
    openedURLs.push_back(url);
    return true;
}

TimerTestEnvironment::TimerTestEnvironment() {
    resetSharedObjects();
    ZVUserInterface::install(&ui);
}

TimerTestEnvironment::~TimerTestEnvironment() {
    resetSharedObjects();
    ZVUserInterface::install(nullptr);
}

void TimerTestEnvironment::resetSharedObjects() {
    ZVIntegrationCenter::resetShared();
    ZVHeartBeat::resetSharedHeartBeat();
    ZVNorvoIntegration::resetSharedIntegration();
}

}  // namespace norvo_timer_tests
