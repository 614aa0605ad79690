#include "ZVOAuth2Client.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "ZVClock.h"
#include "ZVHelpers.h"
#include "ZVJSON.h"
#include "ZVKeychainAccess.h"
#include "ZVLocalization.h"
#include "ZVLog.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

namespace {

// The key store item that lists a client's accounts; tokens sit in one item
// per account, both under the client's name as the account.
constexpr const char* accountListItem = "OAuth2 accounts";

std::mutex registryMutex;
std::map<std::string, std::unique_ptr<ZVOAuth2Client>>& registry() {
    static std::map<std::string, std::unique_ptr<ZVOAuth2Client>> clients;
    return clients;
}

std::function<bool(const std::string&)>& urlOpener() {
    static std::function<bool(const std::string&)> opener;
    return opener;
}

std::map<std::string, std::string> queryOf(const std::string& url) {
    std::map<std::string, std::string> result;
    auto question = url.find('?');
    if (question == std::string::npos) return result;
    std::string query = url.substr(question + 1);
    if (auto hash = query.find('#'); hash != std::string::npos) query.erase(hash);
    size_t start = 0;
    while (start <= query.size()) {
        size_t end = query.find('&', start);
        if (end == std::string::npos) end = query.size();
        std::string pair = query.substr(start, end - start);
        auto equals = pair.find('=');
        if (!pair.empty()) {
            result[ZVPercentDecoded(pair.substr(0, equals))] =
                equals == std::string::npos ? "" : ZVPercentDecoded(pair.substr(equals + 1));
        }
        start = end + 1;
    }
    return result;
}

}  // namespace

namespace {
std::string base64URL(const unsigned char* bytes, std::size_t count) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    for (std::size_t i = 0; i < count; i += 3) {
        const unsigned n = (bytes[i] << 16) | (i + 1 < count ? bytes[i + 1] << 8 : 0) | (i + 2 < count ? bytes[i + 2] : 0);
        text += alphabet[(n >> 18) & 63];
        text += alphabet[(n >> 12) & 63];
        if (i + 1 < count) text += alphabet[(n >> 6) & 63];
        if (i + 2 < count) text += alphabet[n & 63];
    }
    return text;
}
}  // namespace

std::string ZVOAuth2Client::randomToken() {
    unsigned char bytes[32];
    if (RAND_bytes(bytes, sizeof bytes) != 1) ZVFatalError("No random bytes for an authorization");
    return base64URL(bytes, sizeof bytes);
}

std::string ZVOAuth2Client::codeChallenge(const std::string& verifier) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(verifier.data(), verifier.size(), digest, &length, EVP_sha256(), nullptr);
    return base64URL(digest, length);
}

std::string ZVOAuth2Configuration::redirectURI() const { return redirectionScheme + "://oauth2/callback"; }

class ZVOAuth2Client::Account::SigningOwner : public ZVDownloadCenterOwner {
public:
    SigningOwner(std::shared_ptr<Account> account, ZVDownloadCenterOwner* inner)
        : _account(std::move(account)), _inner(inner) {}
    std::string name() const override { return _inner ? _inner->name() : _account->_client.configuration().name; }
    void didEncounterError(ZVDownloadCenter& center, const ZVDownloadCenterError& error) override {
        if (_inner) {
            _inner->didEncounterError(center, error);
        } else {
            ZVDownloadCenterOwner::didEncounterError(center, error);
        }
    }
    void setupURLRequest(ZVURLRequest& request, const std::string& url) override {
        if (_inner) _inner->setupURLRequest(request, url);
        const bool expires = !_account->_client.configuration().tokenNeverExpires;
        auto expiry = _account->expiry();
        if (expires && expiry && *expiry <= ZVNow() + std::chrono::duration<double>(30)) _account->refresh();
        if (auto token = _account->accessToken()) request.setBearerToken(*token);
    }
    std::optional<std::string> refererURL() const override { return _inner ? _inner->refererURL() : std::nullopt; }
    std::string infoPageUserAgent() const override {
        return _inner ? _inner->infoPageUserAgent() : ZVDownloadCenterOwner::infoPageUserAgent();
    }
    std::string defaultSourceEncoding() const override {
        return _inner ? _inner->defaultSourceEncoding() : ZVDownloadCenterOwner::defaultSourceEncoding();
    }

private:
    std::shared_ptr<Account> _account;
    ZVDownloadCenterOwner* _inner;
};

// A download center that owns its signing owner.
namespace {
class ZVSigningDownloadCenter : public ZVDownloadCenter {
public:
    ZVSigningDownloadCenter(std::unique_ptr<ZVDownloadCenterOwner> owner, std::shared_ptr<ZVHTTPSession> session)
        : ZVDownloadCenter(owner.get(), std::move(session)), _ownedOwner(std::move(owner)) {}

private:
    std::unique_ptr<ZVDownloadCenterOwner> _ownedOwner;
};
}  // namespace

ZVOAuth2Client::Account::Account(ZVOAuth2Client& client, std::string identifier)
    : _client(client), _identifier(std::move(identifier)) {}

std::optional<std::string> ZVOAuth2Client::Account::accessToken() const {
    return ZVOptionalString(_client.storedTokens(_identifier), "access_token");
}

std::optional<ZVDate> ZVOAuth2Client::Account::expiry() const {
    ZVDictionary tokens = _client.storedTokens(_identifier);
    auto seconds = ZVRealValue(tokens, "expires_at", 0);
    if (seconds <= 0) return std::nullopt;
    return ZVDate(std::chrono::duration<double>(seconds));
}

std::unique_ptr<ZVDownloadCenter> ZVOAuth2Client::Account::downloadCenter(ZVDownloadCenterOwner* owner) {
    auto signing = std::make_unique<SigningOwner>(shared_from_this(), owner);
    return std::make_unique<ZVSigningDownloadCenter>(std::move(signing), _client._session);
}

std::optional<ZVOAuth2ClientError> ZVOAuth2Client::Account::refreshed() {
    auto refreshToken = ZVOptionalString(_client.storedTokens(_identifier), "refresh_token");
    if (!refreshToken) return ZVOAuth2ClientError{"invalid_grant", ZVLocalizedString("There is no refresh token.")};
    ZVOAuth2Configuration configuration;
    {
        std::lock_guard lock(_client._mutex);
        configuration = _client.configuration();
    }
    return _client.requestTokens(_identifier, {{"grant_type", "refresh_token"},
                                               {"refresh_token", *refreshToken},
                                               {"client_id", configuration.clientID},
                                               {"client_secret", configuration.secret}});
}

ZVOAuth2Client* ZVOAuth2Client::client(const std::string& name) {
    std::lock_guard lock(registryMutex);
    auto it = registry().find(name);
    return it == registry().end() ? nullptr : it->second.get();
}

ZVOAuth2Client& ZVOAuth2Client::registerClientWithConfiguration(const ZVOAuth2Configuration& configuration) {
    std::lock_guard lock(registryMutex);
    auto& slot = registry()[configuration.name];
    if (!slot) slot = std::make_unique<ZVOAuth2Client>(configuration);
    return *slot;
}

void ZVOAuth2Client::setURLOpener(std::function<bool(const std::string&)> opener) {
    std::lock_guard lock(registryMutex);
    urlOpener() = std::move(opener);
}

bool ZVOAuth2Client::handleRedirectURL(const std::string& url) {
    const auto colon = url.find("://");
    if (colon == std::string::npos) return false;
    std::string scheme = url.substr(0, colon);
    std::transform(scheme.begin(), scheme.end(), scheme.begin(), [](unsigned char c) { return std::tolower(c); });
    ZVOAuth2Client* chosen = nullptr;
    {
        std::lock_guard lock(registryMutex);
        for (const auto& [name, client] : registry()) {
            std::lock_guard clientLock(client->_mutex);
            const auto& configuration = client->_configuration;
            if (!configuration.usesLoopbackRedirect && configuration.redirectionScheme == scheme) chosen = client.get();
        }
    }
    return chosen && chosen->handleRedirect(url);
}

ZVOAuth2Client::ZVOAuth2Client(ZVOAuth2Configuration configuration, std::shared_ptr<ZVHTTPSession> session)
    : _configuration(std::move(configuration)), _session(std::move(session)) {}

std::string ZVOAuth2Client::authorizationURL(const std::string& state, const std::string& redirectURI,
                                             const std::string& codeVerifier) const {
    const char* separator = _configuration.authorizationBaseURL.find('?') == std::string::npos ? "?" : "&";
    std::vector<std::pair<std::string, std::string>> query{{"client_id", _configuration.clientID},
                                                           {"redirect_uri", redirectURI.empty() ? _configuration.redirectURI() : redirectURI},
                                                           {"response_type", "code"},
                                                           {"state", state}};
    if (!codeVerifier.empty()) {
        query.emplace_back("code_challenge", codeChallenge(codeVerifier));
        query.emplace_back("code_challenge_method", "S256");
    }
    return _configuration.authorizationBaseURL + separator + ZVURLQueryString(query);
}

std::vector<std::string> ZVOAuth2Client::accountIdentifiers() const {
    auto stored = ZVKeychainAccess::sharedAccess().password(accountListItem, _configuration.name);
    std::vector<std::string> identifiers;
    if (!stored) return identifiers;
    auto parsed = ZVDownloadCenter::jsonObject(*stored);
    if (!parsed || !parsed->is_array()) return identifiers;
    for (const auto& item : *parsed) {
        if (item.is_string()) identifiers.push_back(item.get<std::string>());
    }
    return identifiers;
}

void ZVOAuth2Client::storeAccountIdentifiers(const std::vector<std::string>& identifiers) {
    ZVKeychainAccess::sharedAccess().savePassword(nlohmann::json(identifiers).dump(), accountListItem,
                                                  _configuration.name);
}

std::vector<std::shared_ptr<ZVOAuth2Client::Account>> ZVOAuth2Client::accounts() {
    std::lock_guard lock(_mutex);
    std::vector<std::shared_ptr<Account>> result;
    for (const auto& identifier : accountIdentifiers()) {
        auto it = std::find_if(_accounts.begin(), _accounts.end(),
                               [&](const auto& account) { return account->identifier() == identifier; });
        if (it != _accounts.end()) {
            result.push_back(*it);
        } else {
            _accounts.push_back(std::make_shared<Account>(*this, identifier));
            result.push_back(_accounts.back());
        }
    }
    return result;
}

ZVDictionary ZVOAuth2Client::storedTokens(const std::string& accountIdentifier) const {
    auto stored = ZVKeychainAccess::sharedAccess().password(accountIdentifier, _configuration.name);
    ZVDictionary tokens;
    if (!stored) return tokens;
    auto parsed = ZVDownloadCenter::jsonObject(*stored);
    if (!parsed || !parsed->is_object()) return tokens;
    if (auto access = ZVJSON::string(*parsed, "access_token")) tokens["access_token"] = *access;
    if (auto refresh = ZVJSON::string(*parsed, "refresh_token")) tokens["refresh_token"] = *refresh;
    if (const auto* expires = ZVJSON::value(*parsed, "expires_at"); expires && expires->is_number())
        tokens["expires_at"] = expires->get<double>();
    return tokens;
}

std::optional<ZVOAuth2ClientError> ZVOAuth2Client::requestTokens(
    const std::string& accountIdentifier, const std::vector<std::pair<std::string, std::string>>& form) {
    ZVDownloadCenter center(nullptr, _session);
    auto answer = center.downloadJSONDictionary(_configuration.tokenEndpointURL, [&](ZVURLRequest& request) {
        request.method = "POST";
        request.setWWWFormBody(form);
        request.addJSONAcceptToHeader();
    });
    if (!answer) {
        if (center.lastHTTPStatusCode() == 0) return ZVOAuth2ClientError{"no_connection", ZVLocalizedString("The service did not answer.")};
        return ZVOAuth2ClientError{"invalid_response", ZVLocalizedString("The service's answer held no tokens.")};
    }
    auto accessToken = ZVJSON::string(*answer, "access_token");
    if (center.lastHTTPStatusCode() >= 400 || !accessToken) {
        return ZVOAuth2ClientError{ZVJSON::string(*answer, "error").value_or("invalid_response"),
                                   ZVJSON::string(*answer, "error_description").value_or("")};
    }
    nlohmann::json tokens = {{"access_token", *accessToken}};
    // A refresh answer may leave the refresh token out; the old one stays valid then.
    auto refreshToken = ZVJSON::string(*answer, "refresh_token");
    if (!refreshToken) {
        ZVDictionary previous = storedTokens(accountIdentifier);
        refreshToken = ZVOptionalString(previous, "refresh_token");
    }
    if (refreshToken) tokens["refresh_token"] = *refreshToken;
    if (auto expiresIn = ZVJSON::optionalInteger(*answer, "expires_in"); expiresIn && *expiresIn > 0) {
        tokens["expires_at"] = ZVNow().time_since_epoch().count() + static_cast<double>(*expiresIn);
    }
    if (!ZVKeychainAccess::sharedAccess().savePassword(tokens.dump(), accountIdentifier, _configuration.name))
        return ZVOAuth2ClientError{"keychain", ZVLocalizedString("The tokens could not be stored in the key store.")};
    return std::nullopt;
}

void ZVOAuth2Client::startAccountAuthorization(CompletionHandler completion) {
    std::string url;
    CompletionHandler superseded;
    std::unique_ptr<ZVLoopbackRedirect> previousListener;
    {
        std::lock_guard lock(_mutex);
        superseded = std::move(_pendingCompletion);
        previousListener = std::move(_listener);
        _pendingState = randomToken();
        _pendingVerifier = _configuration.usesPKCE ? randomToken() : std::string();
        _pendingCompletion = std::move(completion);
        _pendingRedirectURI = _configuration.redirectURI();
        if (_configuration.usesLoopbackRedirect) {
            const std::string expectedState = _pendingState;
            _listener = ZVLoopbackRedirect::listen(
                "/oauth2/callback",
                [this](const std::string& target) {
                    std::string redirect;
                    {
                        std::lock_guard guard(_mutex);
                        redirect = _pendingRedirectURI;
                    }
                    const auto result = completeAuthorization(redirect.substr(0, redirect.find("/oauth2/callback")) + target);
                    if (result && !result->error) return ZVLocalizedString("Norvo is authorized. You may close this page.");
                    return ZVLocalizedFormat("Norvo was not authorized (%@). You may close this page and try again.",
                                             {result && result->error ? result->error->error : std::string("no_request")});
                },
                [this, expectedState] {
                    CompletionHandler pending;
                    {
                        std::lock_guard guard(_mutex);
                        if (_pendingState != expectedState) return;
                        pending = std::move(_pendingCompletion);
                        _pendingCompletion = nullptr;
                        _pendingState.clear();
                    }
                    if (pending) pending({nullptr, ZVOAuth2ClientError{"timed_out", ZVLocalizedString("The browser did not come back in time.")}});
                });
            if (_listener) _pendingRedirectURI = _listener->redirectURI();
        }
        url = authorizationURL(_pendingState, _pendingRedirectURI, _pendingVerifier);
    }
    if (superseded) superseded({nullptr, ZVOAuth2ClientError{"cancelled", ZVLocalizedString("A new authorization began.")}});
    std::function<bool(const std::string&)> opener;
    {
        std::lock_guard lock(registryMutex);
        opener = urlOpener();
    }
    if (!opener || !opener(url)) {
        CompletionHandler pending;
        {
            std::lock_guard lock(_mutex);
            pending = std::move(_pendingCompletion);
            _pendingCompletion = nullptr;
            _pendingState.clear();
            _listener.reset();
        }
        if (pending) pending({nullptr, ZVOAuth2ClientError{"no_browser", ZVLocalizedString("The web browser could not be opened.")}});
    }
}

bool ZVOAuth2Client::handleRedirect(const std::string& url) { return completeAuthorization(url).has_value(); }

std::optional<ZVOAuth2Client::AuthorizationResult> ZVOAuth2Client::completeAuthorization(const std::string& url) {
    CompletionHandler completion;
    std::string expectedState, verifier, redirectURI;
    {
        std::lock_guard lock(_mutex);
        if (!_pendingCompletion) return std::nullopt;
        completion = std::move(_pendingCompletion);
        _pendingCompletion = nullptr;
        expectedState = std::move(_pendingState);
        verifier = std::move(_pendingVerifier);
        redirectURI = _pendingRedirectURI;
        _pendingState.clear();
        // Ends the listener's wait; this may run on its own thread, which
        // keeps what it needs until it is done.
        _listener.reset();
    }
    auto query = queryOf(url);
    AuthorizationResult result;
    if (query.count("error")) {
        result.error = ZVOAuth2ClientError{query["error"], query["error_description"]};
    } else if (query["state"] != expectedState) {
        result.error = ZVOAuth2ClientError{"state_mismatch", ZVLocalizedString("The answer does not belong to this authorization.")};
    } else if (query["code"].empty()) {
        result.error = ZVOAuth2ClientError{"invalid_request", ZVLocalizedString("The answer held no authorization code.")};
    } else {
        const std::string identifier = randomToken();
        std::vector<std::pair<std::string, std::string>> form{{"grant_type", "authorization_code"},
                                                              {"code", query["code"]},
                                                              {"redirect_uri", redirectURI},
                                                              {"client_id", _configuration.clientID},
                                                              {"client_secret", _configuration.secret}};
        if (!verifier.empty()) form.emplace_back("code_verifier", verifier);
        result.error = requestTokens(identifier, form);
        if (!result.error) {
            std::lock_guard lock(_mutex);
            auto identifiers = accountIdentifiers();
            identifiers.push_back(identifier);
            storeAccountIdentifiers(identifiers);
            _accounts.push_back(std::make_shared<Account>(*this, identifier));
            result.account = _accounts.back();
        }
    }
    if (result.error) ZVLog([&] { return _configuration.name + ": authorization failed: " + result.error->error; });
    completion(result);
    return result;
}

void ZVOAuth2Client::setClientCredentials(std::string clientID, std::string secret) {
    std::lock_guard lock(_mutex);
    _configuration.clientID = std::move(clientID);
    _configuration.secret = std::move(secret);
}

void ZVOAuth2Client::removeAccount(const std::string& identifier) {
    std::lock_guard lock(_mutex);
    auto identifiers = accountIdentifiers();
    std::erase(identifiers, identifier);
    storeAccountIdentifiers(identifiers);
    std::erase_if(_accounts, [&](const auto& account) { return account->identifier() == identifier; });
    ZVKeychainAccess::sharedAccess().removePassword(identifier, _configuration.name);
}
