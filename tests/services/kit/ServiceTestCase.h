#pragma once

#include <cstdlib>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "ZVValue.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/address_based/ZVAddressBasedIntegration.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "services/kit/FakeQueryRoutes.h"
#include "testkit/LogCapture.h"
#include "services/kit/RecordingSession.h"
#include "services/kit/ServiceFixtures.h"
#include "testkit/FakeServer.h"
#include "testkit/InMemoryKeychain.h"
#include "testkit/TemporaryHome.h"

/// What the test accounts log in with. The password holds a colon so that a
/// wrongly built basic authorization shows.
struct ServiceCredentials {
    std::string username = "ada@example.com";
    std::string password = "horse:battery staple";
    std::string apiToken = "8c1f2e0d9b7a";
};

class ZVOAuth2BasedIntegration;
/// Binds the account to a login of its OAuth2 client whose access token
/// runs out in `secondsLeft`, as after the user authorized.
void grantOAuth2Login(ZVOAuth2BasedIntegration& account, const std::string& accessToken, double secondsLeft = 3600);

/// The local time zone ("Europe/Berlin") while it lives.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone) : _saved(std::getenv("TZ") ? std::getenv("TZ") : "") { set(zone); }
    ~ScopedTimeZone() { set(_saved); }

private:
    static void set(const std::string& zone) {
        zone.empty() ? unsetenv("TZ") : setenv("TZ", zone.c_str(), 1);
        tzset();
    }
    std::string _saved;
};

/// "Basic " and the base64 form of "username:password".
std::string basicAuthorizationHeader(const std::string& username, const std::string& password);

/// The base of every service test: a throw-away home, an in-memory key store,
/// the debug log captured, a fake server of the service on 127.0.0.1, and
/// the transport recording each request as the service built it. Cookies of
/// earlier tests are gone.
///
///     class JIRATests : public ServiceTestCase {};
///     TEST_F(JIRATests, ...) {
///         server.route("GET", "/rest/api/latest/project", FakeResponse::json(fixture("jira/projects.json")));
///         auto account = makeAccount<ZVJIRAIntegration>();
///         auto tree = account->loadRemoteProjects();
///         EXPECT_EQ(treeDescription(tree), "...");
///     }
class ServiceTestCase : public ::testing::Test {
protected:
    ServiceTestCase();
    ~ServiceTestCase() override;

    /// "127.0.0.1:<port>", the address a test account is given.
    std::string serverAddress() const;

    /// A new account of the service pointing at the fake server (over http,
    /// with `path` after the host), with `credentials` in the key store. The
    /// account is written to its dictionary form, `settings` are laid over
    /// it, and it is read back, as at the next start: so the service's own
    /// keys and the credentials' way through the key store are exercised.
    template <class T>
    std::shared_ptr<T> makeAccount(const ZVDictionary& settings = {}, const std::string& path = {}) {
        return makeAccountAt<T>(serverAddress() + path, settings);
    }
    /// The same with another address (a server the test started itself).
    template <class T>
    std::shared_ptr<T> makeAccountAt(const std::string& address, const ZVDictionary& settings = {}) {
        auto account = ZVIntegration::makeNew<T>();
        if (!account->hasHardcodedAddress()) {
            account->setAddress(address);
            account->setSSLEnabled(false);
        }
        storeCredentials(*account);
        ZVDictionary dictionary = account->dictionaryRepresentation();
        for (const auto& [key, value] : settings) dictionary[key] = value;
        return ZVIntegration::makeWithDictionary<T>(dictionary);
    }

    /// Puts `credentials` into the account's credential object and the key store.
    void storeCredentials(ZVIntegration& account) const;

    /// A fixture file with "{{base}}" replaced by the fake server's base URL.
    std::string fixture(const std::string& relativePath, std::map<std::string, std::string> substitutions = {}) const;

    static std::string basicAuthorization(const std::string& username, const std::string& password) {
        return basicAuthorizationHeader(username, password);
    }
    std::string expectedAuthorization() const {
        return basicAuthorization(credentials.username, credentials.password);
    }

    /// A loopback address where nothing listens.
    static std::string deadAddress();

    /// Sends what a service with a fixed host asks of "https://<host>" to the
    /// fake server (or, with `toDeadAddress`, to where nothing listens).
    void redirectFixedHost(const std::string& host, bool toDeadAddress = false);
    /// The same for wherever the account's requests go, its OAuth2 login's included.
    void redirectServiceHost(const ZVAddressBasedIntegration& account, bool toDeadAddress = false);

    ServiceCredentials credentials;
    TemporaryHome home;
    InMemoryKeychain keychain;
    LogCapture log;
    FakeServer server;
    RecordingSession transport;
};

// Nodes.

/// Puts `seconds` on the node, as a stopped timer does, with a finished run
/// of that length titled `title` as its last log entry.
void addTimerRun(ZVIntegrationProject& project, std::uint64_t seconds, const std::string& title);

/// A node of the account with `seconds` tracked on it and, when `title` is
/// given, a finished run of the timer with that title as its last log entry.
ZVIntegrationProject::Pointer trackedProject(const std::shared_ptr<ZVIntegration>& account, const std::string& name,
                                             const std::string& projectID, std::optional<std::string> subprojectID,
                                             std::uint64_t seconds, std::optional<std::string> title = std::nullopt);

/// The tree as text, one node a line, children indented by two spaces:
/// "name [projectID|subprojectID|additionalID]", "-" for an absent identifier.
std::string treeDescription(const ZVIntegration::ProjectList& projects);

/// Whether every node of the tree, at every depth, belongs to `account`.
::testing::AssertionResult everyNodeBelongsTo(const ZVIntegration::ProjectList& projects,
                                              const std::shared_ptr<ZVIntegration>& account);

// Failures.

/// Whether `call` throws the shared no-connection error.
::testing::AssertionResult throwsNoConnection(const std::function<void()>& call);
/// Whether `call` throws the shared error of refused credentials.
::testing::AssertionResult throwsAuthenticationError(const std::function<void()>& call);
/// Whether `call` throws an error of code -346 with exactly this failure reason.
::testing::AssertionResult throwsFailureReason(const std::function<void()>& call, const std::string& reason);
/// Whether `call` throws the generic posting error (code -345, no text of its own).
::testing::AssertionResult throwsGenericPostingError(const std::function<void()>& call);

// Requests.

/// The body of a recorded request parsed as JSON; a parse failure fails the test.
nlohmann::json jsonBody(const FakeRequest& request);
/// The recorded requests as "METHOD path?query" lines, for failure messages.
std::string requestSummary(const std::vector<FakeRequest>& requests);
