#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ZVDownloadCenter.h"
#include "ZVLoopbackRedirect.h"
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
    /// Where the browser brings the answer back: a listener on loopback
    /// (the way for a desktop program) or the custom scheme, which the
    /// desktop entry hands to the running program.
    bool usesLoopbackRedirect = false;
    /// Whether the service takes a PKCE challenge (S256) with the code.
    bool usesPKCE = false;

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
        bool refresh() { return !refreshed(); }
        /// The same, with the failure: "no_connection" when the service did
        /// not answer, else the service's refusal.
        std::optional<ZVOAuth2ClientError> refreshed();

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
    /// Hands a redirect that came in on a custom scheme (the desktop gave it
    /// to the running program) to the client of that scheme, which trades
    /// its code on the calling thread. False when no client of the scheme
    /// waits for an answer.
    static bool handleRedirectURL(const std::string& url);

    explicit ZVOAuth2Client(ZVOAuth2Configuration configuration,
                            std::shared_ptr<ZVHTTPSession> session = nullptr);

    const ZVOAuth2Configuration& configuration() const { return _configuration; }
    /// The service's page with client_id, redirect_uri, response_type=code,
    /// state and, with PKCE, the challenge of `codeVerifier`.
    /// Without a redirect, the configuration's custom scheme.
    std::string authorizationURL(const std::string& state, const std::string& redirectURI = {},
                                 const std::string& codeVerifier = {}) const;
    std::vector<std::shared_ptr<Account>> accounts();

    /// Opens the service's page in the browser and waits for the answer:
    /// on a loopback listener for up to five minutes, or through
    /// handleRedirect. A new start ends a pending one.
    void startAccountAuthorization(CompletionHandler completion);
    /// Takes the redirect ("<scheme>://oauth2/callback?code=...&state=..."),
    /// trades the code for tokens and reports to the pending completion
    /// handler. False when no authorization was waiting for it.
    bool handleRedirect(const std::string& url);
    /// Replaces the client id and secret (an application the user registered).
    void setClientCredentials(std::string clientID, std::string secret);
    /// Forgets an account and its tokens.
    void removeAccount(const std::string& identifier);

    /// base64url of 32 random bytes: states and PKCE verifiers.
    static std::string randomToken();
    /// The S256 challenge of a PKCE verifier.
    static std::string codeChallenge(const std::string& verifier);

private:
    std::optional<AuthorizationResult> completeAuthorization(const std::string& url);
    std::optional<ZVOAuth2ClientError> requestTokens(const std::string& accountIdentifier,
                                                     const std::vector<std::pair<std::string, std::string>>& form);
    ZVDictionary storedTokens(const std::string& accountIdentifier) const;
    std::vector<std::string> accountIdentifiers() const;
    void storeAccountIdentifiers(const std::vector<std::string>& identifiers);

    ZVOAuth2Configuration _configuration;
    std::shared_ptr<ZVHTTPSession> _session;
    std::recursive_mutex _mutex;
    std::string _pendingState;
    std::string _pendingVerifier;
    std::string _pendingRedirectURI;
    CompletionHandler _pendingCompletion;
    std::unique_ptr<ZVLoopbackRedirect> _listener;
    std::vector<std::shared_ptr<Account>> _accounts;
};
