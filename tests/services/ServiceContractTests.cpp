#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>

#include "ZVHelpers.h"
#include "ZVJSON.h"
#include "ZVXML.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/ZVIntegrationRegistry.h"
#include "services/kit/ServiceScenario.h"
#include "services/kit/ServiceTestCase.h"
#include "testkit/ScriptedUserInterface.h"

// gtest names a class by its stored name in its messages.
void PrintTo(const ZVIntegrationClass& integrationClass, std::ostream* stream) { *stream << integrationClass.className; }

// What every built service owes, whatever its protocol: run over the
// registry, so that a new service is held to it from its first row, with
// the scenario its tests register (its replies, its tree, its post).

namespace {

constexpr const char* accountName = "Contract Account";

/// The value of `name` in a form body ("a=1&b=two+words"), decoded.
std::optional<std::string> formValue(const std::string& body, const std::string& name) {
    std::istringstream pairs(body);
    for (std::string pair; std::getline(pairs, pair, '&');) {
        const std::size_t equals = pair.find('=');
        const auto decoded = [](std::string text) {
            std::replace(text.begin(), text.end(), '+', ' ');
            return ZVPercentDecoded(text);
        };
        if (decoded(pair.substr(0, equals)) != name) continue;
        return decoded(equals == std::string::npos ? "" : pair.substr(equals + 1));
    }
    return std::nullopt;
}

class ServiceContractTests : public ServiceTestCase, public ::testing::WithParamInterface<ZVIntegrationClass> {
protected:
    void SetUp() override {
        const auto found = ServiceScenarios::of(GetParam().className);
        ASSERT_TRUE(found) << GetParam().className << " has no scenario: its tests must register one";
        scenario = *found;
    }

    /// A new account of the class at the fake server (a fixed host is sent
    /// there too, or to where nothing listens), with the test credentials.
    std::shared_ptr<ZVAddressBasedIntegration> account(bool reachable = true) {
        auto made = std::dynamic_pointer_cast<ZVAddressBasedIntegration>(GetParam().makeNew());
        if (!made->hasHardcodedAddress()) {
            made->setAddress(reachable ? serverAddress() : deadAddress());
            made->setSSLEnabled(false);
        }
        // A service whose interface lives on its own host, whatever the address,
        // or that speaks only https to the address, which the plain fake is sent for.
        if (made->hasHardcodedAddress() || made->serviceBaseURL() != made->baseURL() ||
            made->SSLSupport() == ZVSSLSupport::mandatory)
            redirectServiceHost(*made, !reachable);
        storeCredentials(*made);
        ZVDictionary dictionary = made->dictionaryRepresentation();
        for (const auto& [key, value] : scenario.settings) dictionary[key] = value;
        auto loaded = std::dynamic_pointer_cast<ZVAddressBasedIntegration>(GetParam().makeWithDictionary(dictionary));
        loaded->setName(accountName);
        return loaded;
    }

    ZVIntegrationProject::Pointer postedNode(const std::shared_ptr<ZVIntegration>& owner) const {
        const auto& node = scenario.posted;
        auto project = trackedProject(owner, "Posted", node.projectID, node.subprojectID, node.seconds, node.title);
        project->setAdditionalID(node.additionalID);
        return project;
    }

    bool isAnonymous(const FakeRequest& request) const {
        return std::find(scenario.anonymousPaths.begin(), scenario.anonymousPaths.end(), request.path) !=
               scenario.anonymousPaths.end();
    }

    /// Whether the request carries a secret of the account: a header of
    /// authorization, a token, a key, a session or a cookie, or the password
    /// or token in the query or the body.
    bool carriesCredentials(const FakeRequest& request, bool countsCookies = true) const {
        for (const auto& [name, value] : request.headers) {
            std::string lower = name;
            std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
            for (const char* word : {"auth", "token", "key", "session", "cookie"})
                if (lower.find(word) != std::string::npos && !value.empty() && (countsCookies || lower != "cookie"))
                    return true;
        }
        for (const std::string& secret : {credentials.password, credentials.apiToken}) {
            if (request.body.find(secret) != std::string::npos) return true;
            for (const auto& [name, value] : request.query)
                if (value == secret) return true;
        }
        return false;
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

    ServiceScenario scenario;
    /// Answers what a service asks while it posts (an activity, a job type).
    ScriptedUserInterface ui;
};

TEST_P(ServiceContractTests, LoadsItsTreeWithCredentialsOnEveryRequestAndSkipsABadRecord) {
    for (const bool withBadRecord : {false, true}) {
        scenario.serve(server, withBadRecord);
        server.clearRequests();
        log.clear();
        auto loaded = account();
        const auto tree = loaded->loadRemoteProjects();
        EXPECT_EQ(treeDescription(tree), scenario.tree) << "with a bad record: " << withBadRecord;
        EXPECT_TRUE(everyNodeBelongsTo(tree, loaded));
        for (const auto& request : server.requests())
            EXPECT_TRUE(isAnonymous(request) || carriesCredentials(request)) << request.method << " " << request.target;
        if (withBadRecord) {
            EXPECT_FALSE(log.lines().empty()) << "the bad record leaves a line in the log";
        }
    }
}

TEST_P(ServiceContractTests, PostsTheScenariosMembersAndAServerErrorIsAPostingError) {
    scenario.serve(server, false);
    auto posting = account();
    auto node = postedNode(posting);
    posting->postTime(*node);
    const auto posts = server.requests(scenario.postPath);
    ASSERT_FALSE(posts.empty()) << requestSummary(server.requests());
    const FakeRequest& post = posts.back();
    EXPECT_TRUE(carriesCredentials(post));
    const auto json = nlohmann::json::accept(post.body) ? std::optional(nlohmann::json::parse(post.body)) : std::nullopt;
    const auto xml = json ? std::nullopt : ZVXMLDocument::parse(post.body);
    for (const auto& [member, expected] : scenario.postMembers) {
        std::optional<std::string> actual;
        if (json) {
            const nlohmann::json* value = ZVJSON::value(*json, member);
            if (value) actual = value->is_string() ? value->get<std::string>() : value->dump();
        } else if (xml) {
            actual = xml->string(member);
        } else if (!post.body.empty()) {
            actual = formValue(post.body, member);
        } else if (post.query.count(member) != 0) {
            // A service that sends every value in the address.
            actual = post.queryValue(member);
        }
        EXPECT_EQ(actual.value_or("<missing>"), expected) << member << " in " << post.body;
    }
    for (const int status : {500, 503}) {
        server.intercept([&](const FakeRequest& request) -> std::optional<FakeResponse> {
            if (request.path != scenario.postPath || request.method != post.method) return std::nullopt;
            return FakeResponse::text("Internal Server Error", status);
        });
        EXPECT_TRUE(throwsGenericPostingError([&] { posting->postTime(*node); })) << status;
    }
}

TEST_P(ServiceContractTests, RefusedCredentialsNameTheAccount) {
    scenario.serve(server, false);
    server.intercept([&](const FakeRequest& request) -> std::optional<FakeResponse> {
        if (isAnonymous(request)) return std::nullopt;
        return FakeResponse::json(R"({"error": "unauthorized"})", 401);
    });
    for (const bool posting : {false, true}) {
        auto refused = account();
        auto node = postedNode(refused);
        try {
            if (posting) {
                refused->postTime(*node);
            } else {
                refused->loadRemoteProjects();
            }
            ADD_FAILURE() << "a refused request did not fail";
        } catch (const ZVIntegrationError& error) {
            const std::string reason = error.localizedFailureReason().value_or(error.what());
            EXPECT_NE(reason.find(accountName), std::string::npos) << reason;
        }
    }
}

TEST_P(ServiceContractTests, NoAnswerIsNoConnection) {
    auto unreachable = account(false);
    auto node = postedNode(unreachable);
    EXPECT_TRUE(throwsNoConnection([&] { unreachable->loadRemoteProjects(); }));
    EXPECT_TRUE(throwsNoConnection([&] { unreachable->postTime(*node); }));
}

TEST_P(ServiceContractTests, UnknownRepliesAreTheServicesFailuresNeverACrash) {
    auto confused = account();
    const FakeResponse replies[] = {
        FakeResponse::text("not found", 404),
        FakeResponse{200, "<html><body>Please log in</body></html>", "text/html"},
        FakeResponse::json(R"({"projects": [{"id": 1, "name")"),
        FakeResponse::xml("<?xml version=\"1.0\"?><unexpected/>"),
    };
    for (const FakeResponse& reply : replies) {
        server.intercept([&](const FakeRequest& request) -> std::optional<FakeResponse> {
            if (isAnonymous(request)) return std::nullopt;
            return reply;
        });
        scenario.serve(server, false);
        EXPECT_TRUE(failsAsAService([&] { confused->loadRemoteProjects(); })) << reply.body;
    }
}

TEST_P(ServiceContractTests, ARedirectToAnotherHostCarriesNoCredentials) {
    FakeServer elsewhere;
    scenario.serve(elsewhere, false);
    server.intercept([&](const FakeRequest& request) -> std::optional<FakeResponse> {
        return FakeResponse::redirect(elsewhere.url(request.target));
    });
    auto redirected = account();
    try {
        redirected->loadRemoteProjects();
    } catch (const ZVIntegrationError&) {
        // What the other host makes of a request without credentials is its affair.
    }
    ASSERT_GT(server.requestCount(), 0u);
    // Cookies are left out: the cookie engine keeps them by host name, and
    // both fake servers are 127.0.0.1, so the other one gets back its own.
    for (const auto& request : elsewhere.requests())
        EXPECT_FALSE(carriesCredentials(request, false)) << request.method << " " << request.target;
}

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

INSTANTIATE_TEST_SUITE_P(Registry, ServiceContractTests, ::testing::ValuesIn(ZVIntegrationRegistry::integrationClasses()),
                         [](const auto& row) {
                             std::string name = row.param.integrationName;
                             for (char& c : name)
                                 if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

}  // namespace
