#pragma once

#include <optional>
#include <string>

#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"
#include "core/integrations/helper/ZVIntegrationProject.h"

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

/// A leaf or branch node for the trees of the tests.
inline ZVIntegrationProject::Pointer makeNode(const std::string& name, const std::string& projectID,
                                              std::uint64_t seconds = 0,
                                              std::optional<std::string> subprojectID = std::nullopt) {
    auto node = ZVIntegrationProject::create(name, projectID, std::move(subprojectID));
    node->setTimeWithoutSaving(seconds);
    return node;
}
