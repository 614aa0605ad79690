#pragma once

#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/ManualClock.h"
#include "testkit/ManualTimerFactory.h"
#include "testkit/ScriptedUserInterface.h"
#include "testkit/TemporaryHome.h"

/// An account class outside the table of services, stored as
/// "Norvo.ZVTestIntegration"; it logs in with a user name and a password.
class ZVTestIntegration : public ZVIntegration {
public:
    static constexpr const char* storedClassName = "Norvo.ZVTestIntegration";
    std::string className() const override { return storedClassName; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.test"; }
    std::string integrationName() const override { return "Test"; }
    ZVAuthenticationType authenticationType() const override { return ZVAuthenticationType::usernamePassword; }
    std::string accountIdentifier() const override { return "test-account"; }
    std::string basicSetupViewNibName() const override { return "Test"; }

    int synchronizeCount = 0;
    void synchronize() override { ++synchronizeCount; }
};

/// An address-based account of a class outside the table, with a chosen
/// authentication and SSL support.
class ZVTestAddressBasedIntegration : public ZVAddressBasedIntegration {
public:
    static constexpr const char* storedClassName = "Norvo.ZVTestAddressBasedIntegration";
    static inline ZVAuthenticationType nextAuthenticationType = ZVAuthenticationType::usernamePassword;
    static inline ZVSSLSupport nextSSLSupport = ZVSSLSupport::optional;
    static inline std::optional<std::string> nextHardcodedAddress;

    std::string className() const override { return storedClassName; }
    std::string integrationIdentifier() const override { return "com.tesselwick.norvo.testaddress"; }
    std::string integrationName() const override { return "Address Test"; }
    ZVAuthenticationType authenticationType() const override { return _authenticationType; }
    ZVSSLSupport SSLSupport() const override { return _sslSupport; }
    bool hasHardcodedAddress() const override { return _hardcodedAddress.has_value(); }
    std::string hardcodedAddress() const override {
        return _hardcodedAddress ? *_hardcodedAddress : ZVAddressBasedIntegration::hardcodedAddress();
    }
    void synchronize() override {}

private:
    ZVAuthenticationType _authenticationType = nextAuthenticationType;
    ZVSSLSupport _sslSupport = nextSSLSupport;
    std::optional<std::string> _hardcodedAddress = nextHardcodedAddress;
};

/// Registers both test classes while it lives.
struct TestIntegrationClasses {
    ZVIntegrationRegistry::ScopedTestClass test{ZVIntegrationClass::of<ZVTestIntegration>(
        ZVTestIntegration::storedClassName, "com.tesselwick.norvo.test", "Test")};
    ZVIntegrationRegistry::ScopedTestClass addressTest{ZVIntegrationClass::of<ZVTestAddressBasedIntegration>(
        ZVTestAddressBasedIntegration::storedClassName, "com.tesselwick.norvo.testaddress", "Address Test")};
};

/// A menu target that records what reaches it.
class RecordingTarget : public ZVIntegrationProjectMenuItemTarget {
public:
    void selectProject(const ZVMenuItem& item) override { selected.push_back(item.representedProject()); }
    bool respondsToMenuAction(const std::string& action) const override {
        return action == "_editAccount:" || action == "manageNorvoProjects:";
    }
    void performMenuAction(const std::string& action, const ZVMenuItem& item) override {
        actions.push_back(action);
        edited = item.representedIntegration();
    }
    std::vector<ZVIntegrationProject::Pointer> selected;
    std::vector<std::string> actions;
    std::shared_ptr<ZVIntegration> edited;
};

/// The names of the projects, in order.
inline std::vector<std::string> namesOf(const std::vector<ZVIntegrationProject::Pointer>& projects) {
    std::vector<std::string> names;
    for (const auto& project : projects) names.push_back(project->name());
    return names;
}

/// Whether `text` is an identifier as the program makes them: a random UUID in capitals.
inline bool isUUID(const std::string& text) {
    static const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    return std::regex_match(text, form);
}

/// A leaf or branch node for the trees of the tests.
inline ZVIntegrationProject::Pointer makeNode(const std::string& name, const std::string& projectID,
                                              std::uint64_t seconds = 0,
                                              std::optional<std::string> subprojectID = std::nullopt) {
    auto node = ZVIntegrationProject::create(name, projectID, std::move(subprojectID));
    node->setTimeWithoutSaving(seconds);
    return node;
}

/// An account of a made-up service without credentials. It counts its saves;
/// with `writesThrough` it also writes itself into the database like a real one.
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
    static std::shared_ptr<RecordingIntegration> make(const std::string& name, bool writesThrough = false) {
        auto account = ZVIntegration::makeNew<RecordingIntegration>();
        account->setName(name);
        account->writesThrough = writesThrough;
        return account;
    }

    int saveCount = 0;
    int synchronizeCount = 0;
    bool writesThrough = false;
};

/// A temporary home, a manual clock and timers, an in-memory key store and a
/// scripted user interface; the shared centre, heart beat and local account
/// start afresh and are dropped at the end.
struct TimerTestEnvironment {
    TimerTestEnvironment() { resetSharedObjects(); }
    ~TimerTestEnvironment() { resetSharedObjects(); }
    TimerTestEnvironment(const TimerTestEnvironment&) = delete;
    TimerTestEnvironment& operator=(const TimerTestEnvironment&) = delete;

    static void resetSharedObjects() {
        ZVIntegrationCenter::resetShared();
        ZVHeartBeat::resetSharedHeartBeat();
        ZVNorvoIntegration::resetSharedIntegration();
    }

    TemporaryHome home;
    InMemoryKeychain keychain;
    ManualClock clock;
    ManualTimerFactory timers{clock};
    ScriptedUserInterface ui;
};
