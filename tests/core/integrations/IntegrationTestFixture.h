#pragma once

#include <gtest/gtest.h>

#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/IntegrationTestDoubles.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/ManualClock.h"
#include "testkit/ManualMainQueue.h"
#include "testkit/ManualTimerFactory.h"
#include "testkit/ScriptedUserInterface.h"
#include "testkit/TemporaryHome.h"

/// A throw-away home with the integration centre and the local account made
/// afresh for each test, an in-memory key store, hand-driven time and
/// scripted alerts.
class IntegrationTestFixture : public ::testing::Test {
protected:
    IntegrationTestFixture() {
        ZVIntegrationCenter::resetShared();
        ZVNorvoIntegration::resetSharedIntegration();
        // An alert that a test did not expect fails it.
        ui.requireScriptedAnswers();
    }
    ~IntegrationTestFixture() override {
        ZVIntegrationCenter::resetShared();
        ZVNorvoIntegration::resetSharedIntegration();
        ZVHeartBeat::resetSharedHeartBeat();
    }

    /// A new test account that the centre holds.
    std::shared_ptr<ZVTestIntegration> addedAccount() {
        auto account = ZVIntegration::makeNew<ZVTestIntegration>();
        ZVIntegrationCenter::shared().addIntegration(account);
        return account;
    }

    TemporaryHome home;
    InMemoryKeychain keychain;
    ManualClock clock;
    ManualTimerFactory timers{clock};
    ManualMainQueue mainQueue;
    ScriptedUserInterface ui;
    TestIntegrationClasses classes;
};
