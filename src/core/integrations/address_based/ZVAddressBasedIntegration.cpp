#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

#include <algorithm>
#include <cctype>

#include "ZVDownloadCenter.h"
#include "ZVJSON.h"
#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationServiceInfo.h"
#include "core/integrations/authentication/ZVAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernameAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAPITokenAuthentication.h"
#include "core/integrations/authentication/ZVUsernamePasswordAuthentication.h"

namespace {
void removeEveryOccurrence(std::string& text, const std::string& part) {
    std::string result;
    std::string::size_type start = 0;
    for (auto found = text.find(part); found != std::string::npos; found = text.find(part, start)) {
        result.append(text, start, found - start);
        start = found + part.size();
    }
    result.append(text, start, std::string::npos);
    text = std::move(result);
}
}  // namespace

ZVSSLSupport ZVAddressBasedIntegration::SSLSupport() const {
    if (const auto* info = serviceInfo()) return info->sslSupport;
    return ZVSSLSupport::none;
}

bool ZVAddressBasedIntegration::hasHardcodedAddress() const {
    if (const auto* info = serviceInfo()) return info->hasHardcodedAddress;
    return false;
}

std::string ZVAddressBasedIntegration::hardcodedAddress() const {
    ZVFatalError("Integration claims to have a hardcoded address, but doesn't supply one.");
}

std::string ZVAddressBasedIntegration::addressPlaceholder() const {
    if (hasHardcodedAddress()) return hardcodedAddress();
    return ZVLocalizedString("URL without leading http or trailing /");
}

std::string ZVAddressBasedIntegration::URLScheme() const {
    return (isSSLEnabled() || SSLSupport() == ZVSSLSupport::mandatory) ? "https" : "http";
}

bool ZVAddressBasedIntegration::isSSLEnabled() const {
    std::lock_guard guard(_addressLock);
    return _isSSLEnabled;
}

void ZVAddressBasedIntegration::setSSLEnabled(bool enabled) {
    std::lock_guard guard(_addressLock);
    _isSSLEnabled = enabled;
}

std::string ZVAddressBasedIntegration::address() const {
    if (hasHardcodedAddress()) return hardcodedAddress();
    std::lock_guard guard(_addressLock);
    return _address;
}

void ZVAddressBasedIntegration::setAddress(const std::string& value) {
    std::string cleaned = cleanedAddress(value);
    std::lock_guard guard(_addressLock);
    _address = std::move(cleaned);
}

std::string ZVAddressBasedIntegration::cleanedAddress(const std::string& value) {
    // The test is on the four letters alone, so "httpd/" loses its slash too.
    if (!value.starts_with("http")) return value;
    std::string cleaned = value;
    removeEveryOccurrence(cleaned, "http://");
    removeEveryOccurrence(cleaned, "https://");
    if (cleaned.ends_with('/')) cleaned.pop_back();
    return cleaned;
}

std::string ZVAddressBasedIntegration::accountIdentifier() const { return address(); }

ZVDictionary ZVAddressBasedIntegration::dictionaryRepresentation() {
    // An account without an address is not written at all, and so doesn't
    // survive a restart.
    const std::string currentAddress = address();
    if (currentAddress.empty()) return {};
    ZVDictionary dictionary = ZVIntegration::dictionaryRepresentation();
    if (!hasHardcodedAddress()) dictionary[ZVIntegrationAddressKey] = currentAddress;
    dictionary[ZVIntegrationUseSSLKey] = isSSLEnabled();
    return dictionary;
}

void ZVAddressBasedIntegration::initialize() {
    {
        std::lock_guard guard(_addressLock);
        _address.clear();
        _isSSLEnabled = true;
    }
    ZVIntegration::initialize();
    if (name().empty()) setName(integrationName() + " (" + address() + ")");
}

void ZVAddressBasedIntegration::initializeWithDictionary(const ZVDictionary& dictionary) {
    // The address comes first: the base makes the credential from accountIdentifier().
    const std::string storedAddress = ZVStringValue(dictionary, ZVIntegrationAddressKey);
    {
        std::lock_guard guard(_addressLock);
        _isSSLEnabled = ZVBoolValue(dictionary, ZVIntegrationUseSSLKey, false);
        _address = storedAddress;
    }
    ZVIntegration::initializeWithDictionary(dictionary);
    setAddress(storedAddress);
    if (name().empty()) setName(integrationName() + " (" + address() + ")");
}

std::string ZVAddressBasedIntegration::baseURL() const { return URLScheme() + "://" + address(); }

std::string ZVAddressBasedIntegration::URLForPath(const std::string& path, const std::string& query) const {
    std::string url = baseURL() + path;
    if (!query.empty()) url += (path.find('?') == std::string::npos ? "?" : "&") + query;
    return url;
}

std::string ZVAddressBasedIntegration::host() const {
    const std::string currentAddress = address();
    std::string authority = currentAddress.substr(0, currentAddress.find_first_of("/?#"));
    if (const auto at = authority.rfind('@'); at != std::string::npos) authority.erase(0, at + 1);
    std::string name;
    if (authority.starts_with('[')) {
        name = authority.substr(0, authority.find(']') + 1);
    } else {
        name = authority.substr(0, authority.find(':'));
    }
    if (name.ends_with('.')) name.pop_back();
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name;
}

bool ZVAddressBasedIntegration::isHostedUnder(std::string_view domain) const {
    const std::string name = host();
    if (name.size() == domain.size()) return name == domain;
    return name.size() > domain.size() && name.ends_with(domain) && name[name.size() - domain.size() - 1] == '.';
}

// The kit.

namespace {

constexpr int maximumRedirects = 10;

/// "scheme://host:port" of an absolute URL, in lower case; empty for a relative one.
std::string origin(const std::string& url) {
    const auto scheme = url.find("://");
    if (scheme == std::string::npos) return {};
    const auto end = url.find_first_of("/?#", scheme + 3);
    std::string result = url.substr(0, end);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) { return std::tolower(c); });
    return result;
}

/// Where a Location header leads from `url`.
std::string resolvedLocation(const std::string& url, const std::string& location) {
    if (location.find("://") != std::string::npos) return location;
    if (location.starts_with("//")) return url.substr(0, url.find("://") + 1) + location;
    if (location.starts_with("/")) return origin(url) + location;
    return url.substr(0, url.find_last_of('/') + 1) + location;
}

std::string percentEncoded(const std::string& text) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string encoded;
    for (const unsigned char c : text) {
        if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
            encoded += static_cast<char>(c);
        } else {
            encoded += '%';
            encoded += hex[c >> 4];
            encoded += hex[c & 15];
        }
    }
    return encoded;
}

std::string withQuery(std::string url, const std::vector<std::pair<std::string, std::string>>& query) {
    for (const auto& [name, value] : query) {
        url += url.find('?') == std::string::npos ? '?' : '&';
        url += percentEncoded(name) + "=" + percentEncoded(value);
    }
    return url;
}

void applyStyle(ZVURLRequest& request, ZVCredentialStyle::Kind kind, const std::string& name, const std::string& user,
                const std::string& secret) {
    using Kind = ZVCredentialStyle::Kind;
    switch (kind) {
        case Kind::none:
        case Kind::session: break;
        case Kind::basicUsernamePassword: request.setUsername(user, secret); break;
        case Kind::basicTokenAndWord: request.setUsername(secret, name); break;
        case Kind::bearerToken: request.setBearerToken(secret); break;
        case Kind::tokenHeader: request.setHeader(name, secret); break;
        case Kind::authorizationScheme: {
            std::string value = name;
            if (const auto slot = value.find("%@"); slot != std::string::npos) value.replace(slot, 2, secret);
            request.setHeader("Authorization", value);
            break;
        }
        case Kind::queryParameter: request.url = withQuery(request.url, {{name, secret}}); break;
    }
}

}  // namespace

ZVCredentialStyle ZVAddressBasedIntegration::credentialStyle() const {
    switch (authenticationType()) {
        case ZVAuthenticationType::none: return {};
        case ZVAuthenticationType::usernamePassword:
        case ZVAuthenticationType::usernameAPIToken:
        case ZVAuthenticationType::usernamePasswordAPIToken: return {ZVCredentialStyle::Kind::basicUsernamePassword};
        default: return {ZVCredentialStyle::Kind::bearerToken};
    }
}

std::string ZVAddressBasedIntegration::logIn() { ZVFatalError("logIn() of a service with the session style"); }

bool ZVAddressBasedIntegration::endsRefusedSession(const ZVCredentialStyle& sent) {
    if (sent.kind != ZVCredentialStyle::Kind::session) return false;
    endSession();
    return true;
}

void ZVAddressBasedIntegration::addAccountHeaders(ZVURLRequest&) const {}

std::string ZVAddressBasedIntegration::malformedReplyReason() const {
    return ZVLocalizedFormat("%@ sent data that Norvo cannot read.", {integrationName()});
}

std::string ZVAddressBasedIntegration::credentialToken() const {
    const auto credential = authentication();
    if (auto token = std::dynamic_pointer_cast<ZVAPITokenAuthentication>(credential)) return token->APIToken();
    if (auto withToken = std::dynamic_pointer_cast<ZVUsernamePasswordAPITokenAuthentication>(credential))
        return withToken->APIToken();
    if (auto password = std::dynamic_pointer_cast<ZVUsernamePasswordAuthentication>(credential)) return password->password();
    return {};
}

namespace {
std::pair<std::string, std::string> userAndPassword(const std::shared_ptr<ZVAuthentication>& credential) {
    if (auto named = std::dynamic_pointer_cast<ZVUsernameAPITokenAuthentication>(credential))
        return {named->username(), named->APIToken()};
    if (auto password = std::dynamic_pointer_cast<ZVUsernamePasswordAuthentication>(credential))
        return {password->username(), password->password()};
    return {};
}
}  // namespace

void ZVAddressBasedIntegration::endSession() {
    std::lock_guard guard(_addressLock);
    _sessionToken.reset();
}

bool ZVAddressBasedIntegration::hasSession() const {
    std::lock_guard guard(_addressLock);
    return _sessionToken.has_value();
}

ZVServiceReply ZVAddressBasedIntegration::send(const ZVServiceRequest& request) {
    for (int attempt = 0;; ++attempt) {
        // Asked at each attempt: a refused session may change the style.
        const ZVCredentialStyle style =
            request.sendsCredentials ? request.credentialStyle.value_or(credentialStyle()) : ZVCredentialStyle{};
        const bool usesSession = style.kind == ZVCredentialStyle::Kind::session;
        std::optional<std::string> session;
        if (usesSession) {
            {
                std::lock_guard guard(_addressLock);
                session = _sessionToken;
            }
            if (!session || sessionNeedsRenewal()) {
                session = logIn();
                std::lock_guard guard(_addressLock);
                _sessionToken = session;
            }
        }
        // Named copies rather than a structured binding, which lambdas may
        // not capture before C++20's last compilers.
        const auto userAndSecret = userAndPassword(authentication());
        const std::string user = userAndSecret.first;
        const std::string password = userAndSecret.second;
        const std::string token = credentialToken();
        const std::string home = origin(serviceBaseURL());

        // Each request has a download centre of its own, owned by this
        // account, so that what the owner adds is this account's.
        ZVDownloadCenter center(this);
        std::string url = withQuery(origin(request.path).empty() ? serviceBaseURL() + request.path : request.path, request.query);
        std::string method = request.method;
        bool sendsBody = true;
        std::optional<ZVHTTPResponse> response;
        for (int hop = 0; hop <= maximumRedirects; ++hop) {
            const bool ownHost = origin(url) == home;
            response = center.download(url, [&](ZVURLRequest& http) {
                http.method = method;
                http.followsRedirects = false;
                if (request.replyLimit) http.maximumResponseBytes = *request.replyLimit;
                for (const auto& [name, value] : request.headers) http.setHeader(name, value);
                if (sendsBody) {
                    // A content type the service gave stays.
                    const auto givenType = http.contentType();
                    if (request.json) {
                        http.setJSONBody(*request.json);
                        http.addJSONAcceptToHeader();
                    } else if (request.xml) {
                        http.body = *request.xml;
                        http.addXMLContentToHeader();
                    } else if (request.form) {
                        http.setWWWFormBody(*request.form);
                    }
                    if (givenType) http.setContentType(*givenType);
                }
                if (!ownHost || !request.sendsCredentials) return;
                addAccountHeaders(http);
                if (usesSession) {
                    applyStyle(http, style.sessionStyle, style.sessionName, user, *session);
                    if (!style.sessionWriteParameter.empty() && method != "GET" && method != "HEAD")
                        http.url = withQuery(http.url, {{style.sessionWriteParameter, *session}});
                } else
                    applyStyle(http, style.kind, style.name,
                               style.kind == ZVCredentialStyle::Kind::basicUsernamePassword ? user : std::string(),
                               style.kind == ZVCredentialStyle::Kind::basicUsernamePassword ? password : token);
            });
            if (!response) throw ZVIntegrationNoConnectionError();
            const int status = response->statusCode;
            const auto location = response->header("Location");
            if (status < 300 || status > 399 || status == 304 || !location) break;
            url = resolvedLocation(url, *location);
            // As browsers do: 303, and 301 and 302 after anything but GET, go on as GET.
            if (status == 303 || ((status == 301 || status == 302) && method != "GET" && method != "HEAD")) {
                method = "GET";
                sendsBody = false;
            }
            // A body may carry the credentials (inside a SOAP envelope) or
            // the user's entries: it never goes on to another host. Nor does
            // an address that names a secret of the account again: a token
            // of the query, or the password of a log-in that travels there.
            const bool hasBody = request.json || request.xml || request.form;
            const std::string secret = usesSession ? *session : token;
            const auto names = [&url](const std::string& text) {
                return !text.empty() && url.find(percentEncoded(text)) != std::string::npos;
            };
            const bool namesSecret = names(secret) || names(password) || names(token);
            if (((sendsBody && hasBody) || namesSecret) && origin(url) != home) {
                ZVLog([&] { return name() + ": not sending what " + request.path + " carries on to " + origin(url); });
                if (request.purpose == ZVServiceRequest::Purpose::posting) throw ZVIntegrationGenericTimePostingError();
                throw ZVIntegrationErrorWithFailureReason(malformedReplyReason());
            }
            if (hop == maximumRedirects) throw ZVIntegrationNoConnectionError();
        }

        const int status = response->statusCode;
        if (status >= 200 && status <= 299)
            return {std::move(*response)};
        ZVLog([&] { return name() + ": " + request.method + " " + url + " answered " + std::to_string(status); });
        if (status == 401 || status == 403) {
            if (attempt == 0 && request.sendsCredentials && endsRefusedSession(style)) continue;
            throw ZVIntegrationErrorWithFailureReason(ZVLocalizedFormat(
                "%@ refused the credentials of the account “%@”. Check them in the account's settings.",
                {integrationName(), name()}));
        }
        if (status == 410) {
            std::string endpoint = url.substr(0, url.find_first_of("?#"));
            const auto scheme = endpoint.find("://");
            const auto path = scheme == std::string::npos ? 0 : endpoint.find('/', scheme + 3);
            endpoint = path == std::string::npos ? std::string("/") : endpoint.substr(path);
            throw ZVIntegrationErrorWithFailureReason(
                ZVLocalizedFormat("The server has removed the endpoint %@ (410 Gone).", {endpoint}));
        }
        if (const std::string path = refusalMessagePath(); !path.empty() && status >= 400) {
            const ZVServiceReply refused{std::move(*response)};
            std::optional<std::string> words;
            if (const auto json = refused.json())
                words = ZVJSON::string(*json, path);
            else if (const auto xml = refused.xml())
                words = xml->string(path);
            if (words && !words->empty()) throw ZVIntegrationErrorWithFailureReason(*words);
        }
        if (request.purpose == ZVServiceRequest::Purpose::posting) throw ZVIntegrationGenericTimePostingError();
        throw ZVIntegrationErrorWithFailureReason(malformedReplyReason());
    }
}

namespace {
/// The reply's body read by `read`; a body it cannot read is `wrongShape`,
/// the posting error when posting, or the service's failure reason.
template <class Read>
auto readReply(const ZVServiceReply& reply, Read read, const ZVServiceRequest& request,
               const std::optional<std::string>& wrongShape, const std::string& malformed) {
    auto content = read(reply);
    if (!content) {
        if (wrongShape) throw ZVIntegrationErrorWithFailureReason(*wrongShape);
        if (request.purpose == ZVServiceRequest::Purpose::posting) throw ZVIntegrationGenericTimePostingError();
        throw ZVIntegrationErrorWithFailureReason(malformed);
    }
    return std::move(*content);
}
}  // namespace

nlohmann::json ZVAddressBasedIntegration::sendForJSON(const ZVServiceRequest& request,
                                                      const std::optional<std::string>& wrongShape) {
    return readReply(send(request), [](const ZVServiceReply& reply) { return reply.json(); }, request, wrongShape,
                     malformedReplyReason());
}

ZVXMLDocument ZVAddressBasedIntegration::sendForXML(const ZVServiceRequest& request,
                                                    const std::optional<std::string>& wrongShape) {
    return readReply(send(request), [](const ZVServiceReply& reply) { return reply.xml(); }, request, wrongShape,
                     malformedReplyReason());
}
