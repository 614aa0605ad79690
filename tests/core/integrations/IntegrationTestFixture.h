#pragma once

#include <gtest/gtest.h>

#include "core/integrations/IntegrationTestDoubles.h"
#include "testkit/ManualMainQueue.h"

/// A throw-away home with the integration centre and the local account made
/// afresh for each test, an in-memory key store, hand-driven time and
/// scripted alerts.
class IntegrationTestFixture : public ::testing::Test, protected TimerTestEnvironment {
protected:
    // An alert that a test did not expect fails it.
    IntegrationTestFixture() { ui.requireScriptedAnswers(); }
    // The shared objects go while the main queue and the test classes still live.
    ~IntegrationTestFixture() override { resetSharedObjects(); }

    /// A new test account that the centre holds.
    std::shared_ptr<ZVTestIntegration> addedAccount() {
        auto account = ZVIntegration::makeNew<ZVTestIntegration>();
        ZVIntegrationCenter::shared().addIntegration(account);
        return account;
    }

    ManualMainQueue mainQueue;
    TestIntegrationClasses classes;
};
