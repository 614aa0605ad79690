#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/ManualClock.h"
#include "testkit/ManualTimerFactory.h"
#include "testkit/ScriptedUserInterface.h"
#include "testkit/TemporaryHome.h"

// Test doubles of the timer core's tests: an account that counts its saves.
namespace norvo_timer_tests {

/// An account of a made-up service. It counts its saves; with
/// `writesThrough` it also writes itself into the database like a real one.
class RecordingIntegration : public ZVIntegration {
public:
    static constexpr const char* storedClassName = "Norvo.ZVRecordingIntegration";

    std::string className() const override { return storedClassName; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.recording"; }
    std::string integrationName() const override { return "Recording"; }
    ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::none; }
    std::string basicSetupViewNibName() const override { return "AddressBased"; }
    std::string accountIdentifier() const override { return "recording:" + integrationID(); }
    void synchronize() override { ++synchronizeCount; }
    void save() override {
        ++saveCount;
        if (writesThrough) ZVIntegration::save();
    }

    /// Makes the class readable from the database while the object lives.
    static ZVIntegrationRegistry::ScopedTestClass registration() {
        return ZVIntegrationRegistry::ScopedTestClass(
            ZVIntegrationClass::of<RecordingIntegration>(storedClassName, "com.tesselwick.norvo.recording", "Recording"));
    }
    /// A new account with the given name.
    static std::shared_ptr<RecordingIntegration> make(const std::string& name, bool writesThrough = false);

    int saveCount = 0;
    int synchronizeCount = 0;
    bool writesThrough = false;
};

/// A temporary home, a manual clock and timers, an in-memory key store and a
/// scripted user interface; the shared centre, heart beat and local account
/// start afresh and are dropped at the end.
class TimerTestEnvironment {
public:
    TimerTestEnvironment();
    ~TimerTestEnvironment();
    TimerTestEnvironment(const TimerTestEnvironment&) = delete;
    TimerTestEnvironment& operator=(const TimerTestEnvironment&) = delete;

    static void resetSharedObjects();

    TemporaryHome home;
    ManualClock clock;
    ManualTimerFactory timers{clock};
    InMemoryKeychain keychain;
    ScriptedUserInterface ui;
};

}  // namespace norvo_timer_tests
