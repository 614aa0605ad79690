#include <gtest/gtest.h>

#include "core/integrations/ZVIntegrationRegistry.h"
#include "services/kit/ServiceTestCase.h"

// gtest names a class by its stored name in its messages.
void PrintTo(const ZVIntegrationClass& integrationClass, std::ostream* stream) { *stream << integrationClass.className; }

// What every built service owes, whatever its protocol: run over the
// registry, so that a new service is held to it from its first row.

namespace {

class ServiceContractTests : public ServiceTestCase, public ::testing::WithParamInterface<ZVIntegrationClass> {
protected:
    /// A new account of the class at the fake server (a fixed host is sent
    /// there too, or to where nothing listens), with the test credentials.
    std::shared_ptr<ZVAddressBasedIntegration> account(bool reachable = true) {
        auto made = std::dynamic_pointer_cast<ZVAddressBasedIntegration>(GetParam().makeNew());
        if (made->hasHardcodedAddress()) {
            redirectFixedHost(made->hardcodedAddress(), !reachable);
        } else {
            made->setAddress(reachable ? serverAddress() : deadAddress());
            made->setSSLEnabled(false);
        }
        storeCredentials(*made);
        return made;
    }

    /// Whether `call` throws the service's kind of failure and nothing else.
    static ::testing::AssertionResult failsAsAService(const std::function<void()>& call) {
        try {
            call();
        } catch (const ZVIntegrationError&) {
            return ::testing::AssertionSuccess();
        } catch (const std::exception& error) {
            return ::testing::AssertionFailure() << "threw " << error.what() << " instead of a service's error";
        }
        return ::testing::AssertionFailure() << "did not fail";
    }
};

TEST_P(ServiceContractTests, SettingsSurviveASaveAndALoad) {
    auto original = account();
    for (const auto& setting : original->settings()) {
        switch (setting.kind) {
            case ZVIntegrationSetting::Kind::flag: original->setSettingValue(setting.key, true); break;
            case ZVIntegrationSetting::Kind::number: original->setSettingValue(setting.key, 12.5); break;
            case ZVIntegrationSetting::Kind::choice: original->setSettingValue(setting.key, setting.choices.back().value); break;
            case ZVIntegrationSetting::Kind::text: original->setSettingValue(setting.key, std::string("stored")); break;
        }
        EXPECT_NE(original->settingValue(setting.key), setting.initialValue()) << setting.key;
    }
    const auto copy = GetParam().makeWithDictionary(original->dictionaryRepresentation());
    for (const auto& setting : original->settings())
        EXPECT_EQ(copy->settingValue(setting.key), original->settingValue(setting.key)) << setting.key;
}

TEST_P(ServiceContractTests, NoAnswerIsNoConnection) {
    auto unreachable = account(false);
    EXPECT_TRUE(throwsNoConnection([&] { unreachable->loadRemoteProjects(); }));
}

TEST_P(ServiceContractTests, RefusalsAndUnknownRepliesAreTheServicesFailuresNeverACrash) {
    auto reachable = account();
    // Nothing is routed: every request gets 404, then 401, then 500.
    EXPECT_TRUE(failsAsAService([&] { reachable->loadRemoteProjects(); }));
    auto leaf = trackedProject(reachable, "Leaf", "1", "2", 3600, "Work");
    EXPECT_TRUE(failsAsAService([&] { reachable->postTime(*leaf); }));
    for (const int status : {401, 500}) {
        for (const char* path : {"/", "/rest/api/latest/serverInfo"})
            server.route("GET", path, FakeResponse{status, "{}", "application/json"});
        EXPECT_TRUE(failsAsAService([&] { reachable->loadRemoteProjects(); })) << status;
    }
}

INSTANTIATE_TEST_SUITE_P(Registry, ServiceContractTests, ::testing::ValuesIn(ZVIntegrationRegistry::integrationClasses()),
                         [](const auto& row) {
                             std::string name = row.param.integrationName;
                             for (char& c : name)
                                 if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

}  // namespace
