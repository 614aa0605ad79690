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

TimerTestEnvironment::TimerTestEnvironment() { resetSharedObjects(); }

TimerTestEnvironment::~TimerTestEnvironment() { resetSharedObjects(); }

void TimerTestEnvironment::resetSharedObjects() {
    ZVIntegrationCenter::resetShared();
    ZVHeartBeat::resetSharedHeartBeat();
    ZVNorvoIntegration::resetSharedIntegration();
}

}  // namespace norvo_timer_tests
