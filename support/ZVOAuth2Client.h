#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ZVDownloadCenter.h"
#include "ZVValue.h"

/// What a service's OAuth2 login needs: where to send the user, where to
/// trade the code for tokens, and the client's credentials.
struct ZVOAuth2Configuration {
    std::string authorizationBaseURL;
    std::string clientID;
    std::string name;
    std::string redirectionScheme;
    std::string secret;
    std::string tokenEndpointURL;
    bool tokenNeverExpires = false;

    /// "<redirectionScheme>://oauth2/callback"
    std::string redirectURI() const;
};

/// A failed authorization; `error` is the OAuth2 error code ("access_denied")
/// or a short code of our own ("state_mismatch", "no_connection").
struct ZVOAuth2ClientError {
    std::string error;
    std::string description;
};

/// An OAuth2 client for one service (authorization code grant). Tokens are
/// kept in the key store under the client's name; accounts survive restarts.
class ZVOAuth2Client {
public:
    /// One authorized login at the service.
    class Account : public std::enable_shared_from_this<Account> {
    public:
        Account(ZVOAuth2Client& client, std::string identifier);
        const std::string& identifier() const { return _identifier; }
        std::optional<std::string> accessToken() const;
        std::optional<ZVDate> expiry() const;
        /// A download center that signs each request with the current token
        /// ("Authorization: Bearer ..."), refreshing it first when it ran out.
        std::unique_ptr<ZVDownloadCenter> downloadCenter(ZVDownloadCenterOwner* owner = nullptr);
        /// Trades the refresh token for a new access token; false on failure.
        bool refresh();

    private:
        friend class ZVOAuth2Client;
        class SigningOwner;
        ZVOAuth2Client& _client;
        std::string _identifier;
    };

    struct AuthorizationResult {
        std::shared_ptr<Account> account;
        std::optional<ZVOAuth2ClientError> error;
    };
    using CompletionHandler = std::function<void(const AuthorizationResult&)>;

    /// The registered client of that name, or none.
    static ZVOAuth2Client* client(const std::string& name);
    /// Registers a client (or gives the one registered under that name).
    static ZVOAuth2Client& registerClientWithConfiguration(const ZVOAuth2Configuration& configuration);
    /// How the user's browser is opened; the shell installs the desktop's.
    static void setURLOpener(std::function<bool(const std::string& url)> opener);

    explicit ZVOAuth2Client(ZVOAuth2Configuration configuration,
                            std::shared_ptr<ZVHTTPSession> session = nullptr);

    const ZVOAuth2Configuration& configuration() const { return _configuration; }
    /// The service's page with client_id, redirect_uri, response_type=code and state.
    std::string authorizationURL(const std::string& state) const;
    std::vector<std::shared_ptr<Account>> accounts();

    /// Opens the service's page; the answer arrives through handleRedirect.
    void startAccountAuthorization(CompletionHandler completion);
    /// Takes the redirect ("<scheme>://oauth2/callback?code=...&state=..."),
    /// trades the code for tokens and reports to the pending completion
    /// handler. False when no authorization was waiting for it.
    bool handleRedirect(const std::string& url);
    /// Forgets an account and its tokens.
    void removeAccount(const std::string& identifier);

private:
    std::optional<ZVOAuth2ClientError> requestTokens(const std::string& accountIdentifier,
                                                     const std::vector<std::pair<std::string, std::string>>& form);
    ZVDictionary storedTokens(const std::string& accountIdentifier) const;
    std::vector<std::string> accountIdentifiers() const;
    void storeAccountIdentifiers(const std::vector<std::string>& identifiers);

    ZVOAuth2Configuration _configuration;
    std::shared_ptr<ZVHTTPSession> _session;
    std::recursive_mutex _mutex;
    std::string _pendingState;
    CompletionHandler _pendingCompletion;
    std::vector<std::shared_ptr<Account>> _accounts;
};
