#include "services/kit/ServiceTestCase.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "ZVKeychainAccess.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/address_based/ZVOAuth2BasedIntegration.h"
#include "core/integrations/authentication/ZVAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernameAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"
#include "core/log_entries/ZVTimeLogEntry.h"
#include "ZVClock.h"

ServiceTestCase::ServiceTestCase() { transport.clearAllCookies(); }
ServiceTestCase::~ServiceTestCase() = default;

std::string ServiceTestCase::serverAddress() const { return "127.0.0.1:" + std::to_string(server.port()); }

void ServiceTestCase::storeCredentials(ZVIntegration& account) const {
    if (auto* withOAuth2 = dynamic_cast<ZVOAuth2BasedIntegration*>(&account)) {
        grantOAuth2Login(*withOAuth2, credentials.apiToken);
        return;
    }
    auto authentication = account.authentication();
    if (!authentication) return;
    if (auto* both = dynamic_cast<ZVUsernamePasswordAPITokenAuthentication*>(authentication.get())) {
        both->setUsername(credentials.username);
        both->setPassword(credentials.password);
        both->setAPIToken(credentials.apiToken);
    } else if (auto* userPassword = dynamic_cast<ZVUsernamePasswordAuthentication*>(authentication.get())) {
        userPassword->setUsername(credentials.username);
        userPassword->setPassword(credentials.password);
    } else if (auto* userToken = dynamic_cast<ZVUsernameAPITokenAuthentication*>(authentication.get())) {
        userToken->setUsername(credentials.username);
        userToken->setAPIToken(credentials.apiToken);
    } else if (auto* token = dynamic_cast<ZVAPITokenAuthentication*>(authentication.get())) {
        token->setAPIToken(credentials.apiToken);
    }
    authentication->setAccountInformation(account.accountIdentifier());
    authentication->saveKeychainInformation();
}

void grantOAuth2Login(ZVOAuth2BasedIntegration& account, const std::string& accessToken, double secondsLeft) {
    const std::string client = account.authenticationIdentifier();
    auto& keychain = ZVKeychainAccess::sharedAccess();
    const std::string login = "login-" + accessToken;
    keychain.savePassword(nlohmann::json{{"access_token", accessToken},
                                         {"refresh_token", "refresh-" + accessToken},
                                         {"expires_at", ZVNow().time_since_epoch().count() + secondsLeft}}
                              .dump(),
                          login, client);
    keychain.savePassword(nlohmann::json::array({login}).dump(), "OAuth2 accounts", client);
    for (const auto& candidate : account.authenticationClient().accounts())
        if (candidate->identifier() == login) account.setAccount(candidate);
}

std::string ServiceTestCase::fixture(const std::string& relativePath,
                                     std::map<std::string, std::string> substitutions) const {
    substitutions.emplace("base", server.baseURL());
    return ServiceFixtures::load(relativePath, substitutions);
}

std::string basicAuthorizationHeader(const std::string& username, const std::string& password) {
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string plain = username + ":" + password;
    std::string encoded;
    // Three bytes become four characters; "=" stands for those a short last group lacks.
    for (std::size_t i = 0; i < plain.size(); i += 3) {
        unsigned group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = group << 8 | (i + k < plain.size() ? static_cast<unsigned char>(plain[i + k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            encoded += k <= plain.size() - i ? alphabet[(group >> (18 - 6 * k)) & 63] : '=';
    }
    return "Basic " + encoded;
}

std::string ServiceTestCase::deadAddress() {
    // Bind a port, then let it go: nothing listens there afterwards.
    const int socketHandle = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in socketAddress{};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socketAddress.sin_port = 0;
    socklen_t length = sizeof socketAddress;
    bind(socketHandle, reinterpret_cast<sockaddr*>(&socketAddress), length);
    getsockname(socketHandle, reinterpret_cast<sockaddr*>(&socketAddress), &length);
    close(socketHandle);
    return "127.0.0.1:" + std::to_string(ntohs(socketAddress.sin_port));
}

void ServiceTestCase::redirectFixedHost(const std::string& host, bool toDeadAddress) {
    transport.redirect("https://" + host, toDeadAddress ? "http://" + deadAddress() : server.baseURL());
}

void ServiceTestCase::redirectServiceHost(const ZVAddressBasedIntegration& account, bool toDeadAddress) {
    const auto hostOf = [](std::string url) {
        url.erase(0, url.find("://") + 3);
        return url.substr(0, url.find('/'));
    };
    // The service's own scheme: a service of plain http is sent there too.
    const std::string base = account.serviceBaseURL();
    transport.redirect(base.substr(0, base.find("://") + 3) + hostOf(base),
                       toDeadAddress ? "http://" + deadAddress() : server.baseURL());
    // The login's pages and tokens may live on a host of their own.
    if (const auto* withOAuth2 = dynamic_cast<const ZVOAuth2BasedIntegration*>(&account)) {
        const auto configuration = withOAuth2->authenticationConfiguration();
        for (const auto& url : {configuration.authorizationBaseURL, configuration.tokenEndpointURL})
            if (hostOf(url) != hostOf(account.serviceBaseURL())) redirectFixedHost(hostOf(url), toDeadAddress);
    }
}

ZVIntegrationProject::Pointer trackedProject(const std::shared_ptr<ZVIntegration>& account, const std::string& name,
                                             const std::string& projectID, std::optional<std::string> subprojectID,
                                             std::uint64_t seconds, std::optional<std::string> title) {
    auto project = ZVIntegrationProject::create(name, projectID, std::move(subprojectID));
    project->setIntegration(account);
    if (title) {
        addTimerRun(*project, seconds, *title);
    } else {
        project->setTimeWithoutSaving(seconds);
    }
    return project;
}

void addTimerRun(ZVIntegrationProject& project, std::uint64_t seconds, const std::string& title) {
    auto entry = std::make_shared<ZVTimeLogEntry>(project.shared_from_this());
    const ZVDate now = ZVNow();
    entry->setStartDate(now - std::chrono::duration<double>(static_cast<double>(seconds)));
    entry->setStopDate(now);
    entry->setText(title);
    project.addLogEntry(entry);
    project.setTimeWithoutSaving(project.time() + seconds);
}

namespace {
void describe(const ZVIntegration::ProjectList& projects, const std::string& indentation, std::string& text) {
    for (const auto& project : projects) {
        text += indentation + project->name() + " [" + project->projectID() + "|" +
                project->subprojectID().value_or("-") + "|" + project->additionalID().value_or("-") + "]\n";
        describe(project->subprojects(), indentation + "  ", text);
    }
}

bool belongs(const ZVIntegration::ProjectList& projects, const std::shared_ptr<ZVIntegration>& account,
             std::string& stray) {
    for (const auto& project : projects) {
        if (project->integration() != account) {
            stray = project->name();
            return false;
        }
        if (!belongs(project->subprojects(), account, stray)) return false;
    }
    return true;
}

::testing::AssertionResult throwsError(const std::function<void()>& call,
                                       const std::function<::testing::AssertionResult(const ZVIntegrationError&)>& check) {
    try {
        call();
    } catch (const ZVIntegrationError& error) {
        return check(error);
    }
    return ::testing::AssertionFailure() << "nothing was thrown";
}

std::string describeError(const ZVIntegrationError& error) {
    return error.domain() + " " + std::to_string(error.code()) + " \"" +
           error.localizedFailureReason().value_or("<no failure reason>") + "\"";
}
}  // namespace

std::string treeDescription(const ZVIntegration::ProjectList& projects) {
    std::string text;
    describe(projects, "", text);
    return text;
}

::testing::AssertionResult everyNodeBelongsTo(const ZVIntegration::ProjectList& projects,
                                              const std::shared_ptr<ZVIntegration>& account) {
    std::string stray;
    if (belongs(projects, account, stray)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "the node \"" << stray << "\" has no or another account";
}

namespace {
/// Whether `call` throws an error of the domain, code and failure reason of `expected`.
::testing::AssertionResult throwsSharedError(const std::function<void()>& call, const ZVIntegrationError& expected) {
    return throwsError(call, [&expected](const ZVIntegrationError& error) {
        if (error.domain() == expected.domain() && error.code() == expected.code() &&
            error.localizedFailureReason() == expected.localizedFailureReason())
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "threw " << describeError(error) << " instead of "
                                             << describeError(expected);
    });
}
}  // namespace

::testing::AssertionResult throwsNoConnection(const std::function<void()>& call) {
    return throwsSharedError(call, ZVIntegrationNoConnectionError());
}

::testing::AssertionResult throwsAuthenticationError(const std::function<void()>& call) {
    return throwsSharedError(call, ZVIntegrationAuthenticationError());
}

::testing::AssertionResult throwsFailureReason(const std::function<void()>& call, const std::string& reason) {
    return throwsError(call, [&reason](const ZVIntegrationError& error) {
        if (error.domain() == ZVIntegrationErrorDomain && error.code() == ZVIntegrationCustomErrorCode &&
            error.localizedFailureReason() == reason)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "threw " << describeError(error) << " instead of the reason \""
                                             << reason << "\"";
    });
}

::testing::AssertionResult throwsGenericPostingError(const std::function<void()>& call) {
    return throwsSharedError(call, ZVIntegrationGenericTimePostingError());
}

nlohmann::json jsonBody(const FakeRequest& request) {
    try {
        return nlohmann::json::parse(request.body);
    } catch (const nlohmann::json::exception& error) {
        ADD_FAILURE() << "The body of " << request.method << " " << request.path << " is no JSON: " << request.body;
        return nullptr;
    }
}

std::string requestSummary(const std::vector<FakeRequest>& requests) {
    std::string text;
    for (const auto& request : requests) {
        text += request.method + " " + request.path;
        char separator = '?';
        for (const auto& [key, value] : request.query) {
            text += separator + key + "=" + value;
            separator = '&';
        }
        text += "\n";
    }
    return text;
}
