#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "ZVURLRequest.h"
#include "ZVXML.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVSSLSupport.h"
#include "core/integrations/address_based/common/ZVServiceRequest.h"

inline constexpr const char* ZVIntegrationAddressKey = "KDIntegrationAddress";
inline constexpr const char* ZVIntegrationUseSSLKey = "KDIntegrationUseSSL";

/// The base of every remote service: where the service lives (an address
/// the user types, or a fixed host of the service) and the scheme to reach
/// it. The address is the accountIdentifier, so it keys the secrets.
///
/// It also holds what every service does with that address: URLs from a
/// path and a query, and the kit's send(), which applies the service's
/// credential style and the one error policy of every service.
class ZVAddressBasedIntegration : public ZVIntegration {
public:
    // Facts.

    /// Whether the user may choose the scheme; from the table of services.
    virtual ZVSSLSupport SSLSupport() const;
    /// Whether the service lives on one fixed host; from the table of services.
    virtual bool hasHardcodedAddress() const;
    /// The fixed host; a service with hasHardcodedAddress() must override it.
    virtual std::string hardcodedAddress() const;
    /// What the address field shows while it is empty.
    virtual std::string addressPlaceholder() const;
    /// "https" when SSL is enabled or mandatory, else "http".
    virtual std::string URLScheme() const;

    bool isSSLEnabled() const;
    virtual void setSSLEnabled(bool enabled);

    /// The fixed host when there is one, else the stored address.
    std::string address() const;
    /// Stores what the user typed, cleaned by cleanedAddress().
    void setAddress(const std::string& value);
    /// An address without "http://" and "https://" and without one trailing
    /// "/", when it begins with "http"; anything else unchanged.
    static std::string cleanedAddress(const std::string& value);

    std::string accountIdentifier() const override;
    /// The host the requests go to: an offline computer gets no answer from it.
    std::optional<std::string> connectionProbeURL() const override { return serviceBaseURL() + "/"; }
    std::string basicSetupViewNibName() const override { return "AddressBased"; }
    /// Empty when there is no address; else the base's keys plus
    /// "KDIntegrationAddress" (without a fixed host) and "KDIntegrationUseSSL".
    ZVDictionary dictionaryRepresentation() override;

    // Helpers for services.

    /// URLScheme() + "://" + address().
    std::string baseURL() const;
    /// Where the kit sends a request's path, and the one origin that gets
    /// the credentials: baseURL(), unless the service's interface lives on
    /// a host of its own.
    virtual std::string serviceBaseURL() const { return baseURL(); }
    /// The host name of the address, in lower case, without port and path.
    std::string host() const;
    /// Whether the host is `domain` itself or a name under it
    /// ("acme.atlassian.net" is under "atlassian.net", "notatlassian.net" isn't).
    bool isHostedUnder(std::string_view domain) const;
    /// baseURL() + path (which begins with "/"), plus "?" and the query when
    /// one is given (already encoded, as from a dictionary's urlQueryString).
    std::string URLForPath(const std::string& path, const std::string& query = {}) const;

    // The kit: one way to send a request for this account.

    /// How the service takes the credentials. By default from the
    /// authentication type: basic user name and password (with a token as
    /// the password where there is no password), a bearer token otherwise.
    virtual ZVCredentialStyle credentialStyle() const;
    /// For the session style: logs in with the stored credentials and gives
    /// the session token. Throws ZVIntegrationError.
    virtual std::string logIn();
    /// For the session style: whether the session in memory must be
    /// renewed before the next request (a token about to run out).
    virtual bool sessionNeedsRenewal() { return false; }
    /// A request of the account, sent in the style `sent`, was refused. When
    /// it leant on a session that the server may have ended, this forgets the
    /// session and answers true, and the request goes once more with what
    /// credentialStyle() then says. By default the session style's token.
    virtual bool endsRefusedSession(const ZVCredentialStyle& sent);
    /// Headers that every request of this account carries besides the
    /// credentials (an account-id header); nothing by default.
    virtual void addAccountHeaders(ZVURLRequest& request) const;
    /// The failure reason of a reply of the wrong shape.
    virtual std::string malformedReplyReason() const;
    /// Where the body of a refused request (a status of 400 and up but for
    /// the refused credentials and 410) gives the service's own words for
    /// the refusal, which then are the failure reason: a key path in a JSON
    /// body, an XPath in an XML one. None by default, and a body without
    /// them fails as usual.
    virtual std::string refusalMessagePath() const { return {}; }

    /// Sends the request for this account and gives the reply when its
    /// status is 200 to 299. Otherwise it throws, the same way for every
    /// service: no answer is ZVIntegrationNoConnectionError; 401 and 403
    /// say that the account's credentials were refused; 410 names the
    /// removed endpoint; the service's words at refusalMessagePath() are
    /// the failure reason; any other status is the posting error when
    /// posting and the service's failure reason when loading. Credentials go only to
    /// the account's own host: a redirect elsewhere is followed without them.
    ZVServiceReply send(const ZVServiceRequest& request);
    /// send(), whose body must be JSON; else the given reason, or malformedReplyReason().
    nlohmann::json sendForJSON(const ZVServiceRequest& request, const std::optional<std::string>& wrongShape = {});
    /// send(), whose body must be XML; else the given reason, or malformedReplyReason().
    ZVXMLDocument sendForXML(const ZVServiceRequest& request, const std::optional<std::string>& wrongShape = {});
    /// The secret that token styles send: the API token where the
    /// credential has one, else the password.
    std::string credentialToken() const;
    /// Forgets the session token (the session style logs in again).
    void endSession();
    /// Whether a session token is held in memory.
    bool hasSession() const;

protected:
    void initialize() override;
    void initializeWithDictionary(const ZVDictionary& dictionary) override;

private:
    mutable std::mutex _addressLock;
    std::string _address;
    bool _isSSLEnabled = true;
    std::optional<std::string> _sessionToken;
};
