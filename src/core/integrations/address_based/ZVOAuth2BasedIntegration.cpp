#include "core/integrations/address_based/ZVOAuth2BasedIntegration.h"

#include "ZVClock.h"
#include "ZVJSON.h"
#include "ZVKeychainAccess.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "ZVOAuth2BuiltInClients.h"
#include "ZVThreading.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/authentication/ZVOAuth2Authentication.h"
#include "core/ui/ZVUserInterface.h"

namespace {
// The key store item of an application the user registered with a service
// ({"id": ..., "secret": ...}), under the service's client name.
constexpr const char* ownClientItem = "OAuth2 application";
// A token that runs out within this many seconds is refreshed first.
constexpr double refreshMargin = 60;
}  // namespace

std::optional<std::pair<std::string, std::string>> ZVOAuth2BasedIntegration::ownClient() const {
    const auto stored = ZVKeychainAccess::sharedAccess().password(ownClientItem, authenticationIdentifier());
    if (!stored || !nlohmann::json::accept(*stored)) return std::nullopt;
    const auto parsed = nlohmann::json::parse(*stored);
    const auto identifier = ZVJSON::string(parsed, "id");
    const auto secret = ZVJSON::string(parsed, "secret");
    if (!identifier || identifier->empty()) return std::nullopt;
    return std::pair{*identifier, secret.value_or("")};
}

void ZVOAuth2BasedIntegration::setOwnClient(const std::string& clientID, const std::string& secret) {
    auto& keychain = ZVKeychainAccess::sharedAccess();
    if (clientID.empty())
        keychain.removePassword(ownClientItem, authenticationIdentifier());
    else
        keychain.savePassword(nlohmann::json{{"id", clientID}, {"secret", secret}}.dump(), ownClientItem,
                              authenticationIdentifier());
    authenticationClient();
}

ZVOAuth2Client& ZVOAuth2BasedIntegration::authenticationClient() const {
    ZVOAuth2Configuration configuration = authenticationConfiguration();
    configuration.name = authenticationIdentifier();
    if (const auto own = ownClient()) {
        configuration.clientID = own->first;
        configuration.secret = own->second;
    } else {
        for (const auto& builtIn : ZVOAuth2BuiltInClients)
            if (builtIn.name && configuration.name == builtIn.name) {
                configuration.clientID = builtIn.clientID;
                configuration.secret = builtIn.secret;
            }
    }
    ZVOAuth2Client* client = ZVOAuth2Client::client(configuration.name);
    if (!client) return ZVOAuth2Client::registerClientWithConfiguration(configuration);
    if (client->configuration().clientID != configuration.clientID ||
        client->configuration().secret != configuration.secret)
        client->setClientCredentials(configuration.clientID, configuration.secret);
    return *client;
}

std::shared_ptr<ZVOAuth2BasedIntegration::Account> ZVOAuth2BasedIntegration::account() {
    std::lock_guard guard(_accountLock);
    if (_accountLookedUp) return _account;
    _accountLookedUp = true;
    const auto code = OAuth2Authentication().code();
    if (!code) return nullptr;
    for (const auto& login : authenticationClient().accounts())
        if (login->identifier() == *code) return _account = login;
    return nullptr;
}

void ZVOAuth2BasedIntegration::setAccount(std::shared_ptr<Account> login) {
    {
        std::lock_guard guard(_accountLock);
        _accountLookedUp = true;
        _account = login;
        _lastToken.clear();
    }
    endSession();
    OAuth2Authentication().setCode(login ? std::optional(login->identifier()) : std::nullopt);
}

void ZVOAuth2BasedIntegration::authorize() {
    auto& ui = ZVUserInterface::shared();
    if (account()) {
        ui.runModal({.messageText = ZVLocalizedString("Norvo is already authorized with this service."),
                     .buttons = {ZVLocalizedString("OK")},
                     .style = ZVAlert::Style::informational});
        return;
    }
    ZVOAuth2Client& client = authenticationClient();
    if (client.configuration().clientID.empty()) {
        ui.runModal({.messageText = ZVLocalizedFormat("Norvo has no application registered with %@.", {integrationName()}),
                     .informativeText = ZVLocalizedFormat(
                         "Register an application with %@, then enter its client ID and secret under Advanced in "
                         "this account's settings.",
                         {integrationName()}),
                     .buttons = {ZVLocalizedString("OK")}});
        return;
    }
    ZVOAuth2Client::setURLOpener([](const std::string& url) { return ZVUserInterface::shared().openURL(url); });
    std::weak_ptr<ZVIntegration> weakSelf = shared_from_this();
    client.startAccountAuthorization([weakSelf](const ZVOAuth2Client::AuthorizationResult& result) {
        // The browser's answer comes on the listener's thread.
        ZV_PERFORM_BLOCK_ON_MAIN_THREAD_ASYNC([weakSelf, result] {
            auto self = std::dynamic_pointer_cast<ZVOAuth2BasedIntegration>(weakSelf.lock());
            if (!self) return;
            if (result.error) {
                const auto& error = *result.error;
                ZVUserInterface::shared().showAlert(
                    {.messageText = ZVLocalizedFormat("Norvo could not be authorized with %@.", {self->integrationName()}),
                     .informativeText = error.description.empty() ? error.error : error.description + " (" + error.error + ")"});
                return;
            }
            self->setAccount(result.account);
            self->save();
        });
    });
}

ZVCredentialStyle ZVOAuth2BasedIntegration::credentialStyle() const {
    return {.kind = ZVCredentialStyle::Kind::session, .sessionStyle = ZVCredentialStyle::Kind::bearerToken};
}

bool ZVOAuth2BasedIntegration::sessionNeedsRenewal() {
    const auto login = account();
    if (!login || authenticationClient().configuration().tokenNeverExpires) return false;
    const auto expiry = login->expiry();
    return expiry && *expiry <= ZVNow() + std::chrono::duration<double>(refreshMargin);
}

std::string ZVOAuth2BasedIntegration::logIn() {
    const auto login = account();
    if (!login) throw ZVIntegrationErrorWithFailureReason(notAuthorizedReason());
    auto token = login->accessToken();
    bool refused = false;
    {
        std::lock_guard guard(_accountLock);
        refused = token && *token == _lastToken;
    }
    if (!token || refused || sessionNeedsRenewal()) {
        ZVLog([&] { return name() + ": refreshing the access token"; });
        if (const auto error = login->refreshed()) {
            if (error->error == "no_connection") throw ZVIntegrationNoConnectionError();
            // The service refused: this login is over, and the account says
            // so until the user authorizes again.
            ZVLog([&] { return name() + ": the refresh was refused: " + error->error; });
            authenticationClient().removeAccount(login->identifier());
            {
                std::lock_guard guard(_accountLock);
                _account = nullptr;
                _lastToken.clear();
            }
            throw ZVIntegrationErrorWithFailureReason(ZVLocalizedFormat(
                "%@ ended the authorization of the account “%@”. Edit the account and press Authorize again.",
                {integrationName(), name()}));
        }
        token = login->accessToken();
    }
    std::lock_guard guard(_accountLock);
    _lastToken = token.value_or("");
    return _lastToken;
}

std::string ZVOAuth2BasedIntegration::notAuthorizedReason() const {
    return ZVLocalizedFormat("The account “%@” is not authorized with %@. Edit the account and press Authorize.",
                             {name(), integrationName()});
}
