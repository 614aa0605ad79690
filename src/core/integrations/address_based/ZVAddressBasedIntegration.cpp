#include "core/integrations/address_based/ZVAddressBasedIntegration.h"

#include <algorithm>
#include <cctype>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "core/integrations/ZVIntegrationServiceInfo.h"
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

bool ZVAddressBasedIntegration::isSuccessfulStatusCode(long statusCode) { return statusCode >= 200 && statusCode <= 299; }

// Requests.

ZVAddressBasedIntegration::RequestModifier ZVAddressBasedIntegration::basicAuthentication(std::string username,
                                                                                          std::string password) {
    return [username = std::move(username), password = std::move(password)](ZVURLRequest& request) {
        request.setUsername(username, password);
    };
}

ZVAddressBasedIntegration::RequestModifier ZVAddressBasedIntegration::basicAuthenticationFromCredentials() const {
    const ZVUsernamePasswordAuthentication& credential = usernamePasswordAuthentication();
    return basicAuthentication(credential.username(), credential.password());
}

ZVAddressBasedIntegration::RequestModifier ZVAddressBasedIntegration::bearerAuthentication(std::string token) {
    return [token = std::move(token)](ZVURLRequest& request) { request.setBearerToken(token); };
}

ZVAddressBasedIntegration::RequestModifier ZVAddressBasedIntegration::sendingJSON(std::string method,
                                                                                  nlohmann::json body) {
    return [method = std::move(method), body = std::move(body)](ZVURLRequest& request) {
        request.method = method;
        request.setJSONBody(body);
        request.addJSONAcceptToHeader();
    };
}

ZVAddressBasedIntegration::RequestModifier ZVAddressBasedIntegration::sendingXML(std::string method,
                                                                                 std::string body) {
    return [method = std::move(method), body = std::move(body)](ZVURLRequest& request) {
        request.method = method;
        request.body = body;
        request.addXMLContentToHeader();
        request.addXMLAcceptToHeader();
    };
}

ZVAddressBasedIntegration::RequestModifier ZVAddressBasedIntegration::sendingForm(
    std::string method, std::vector<std::pair<std::string, std::string>> pairs) {
    return [method = std::move(method), pairs = std::move(pairs)](ZVURLRequest& request) {
        request.method = method;
        request.setWWWFormBody(pairs);
    };
}

ZVAddressBasedIntegration::RequestModifier ZVAddressBasedIntegration::chain(
    std::initializer_list<RequestModifier> modifiers) {
    std::vector<RequestModifier> steps;
    for (const auto& modifier : modifiers)
        if (modifier) steps.push_back(modifier);
    return [steps = std::move(steps)](ZVURLRequest& request) {
        for (const auto& step : steps) step(request);
    };
}

// Downloads.

nlohmann::json ZVAddressBasedIntegration::requireJSON(const std::string& url, const RequestModifier& modifier) {
    auto json = downloadCenter().downloadJSON(url, modifier);
    if (!json) throw ZVIntegrationNoConnectionError();
    return std::move(*json);
}

nlohmann::json ZVAddressBasedIntegration::requireJSONDictionary(const std::string& url,
                                                                const RequestModifier& modifier) {
    auto json = downloadCenter().downloadJSONDictionary(url, modifier);
    if (!json) throw ZVIntegrationNoConnectionError();
    return std::move(*json);
}

ZVXMLDocument ZVAddressBasedIntegration::requireXMLDocument(const std::string& url, const RequestModifier& modifier) {
    auto document = downloadCenter().downloadXMLDocument(url, modifier);
    if (!document) throw ZVIntegrationNoConnectionError();
    return std::move(*document);
}

std::string ZVAddressBasedIntegration::requireWebPage(const std::string& url, const RequestModifier& modifier) {
    auto page = downloadCenter().downloadWebPage(url, modifier);
    if (!page) throw ZVIntegrationNoConnectionError();
    return std::move(*page);
}

bool ZVAddressBasedIntegration::lastResponseSucceeded() {
    return isSuccessfulStatusCode(downloadCenter().lastHTTPStatusCode());
}

void ZVAddressBasedIntegration::requireSuccessfulPost() {
    if (!lastResponseSucceeded()) throw ZVIntegrationGenericTimePostingError();
}

void ZVAddressBasedIntegration::requireEndpointNotGone(const std::string& url) {
    constexpr int gone = 410;
    if (downloadCenter().lastHTTPStatusCode() != gone) return;
    std::string endpoint = url.substr(0, url.find_first_of("?#"));
    if (const auto scheme = endpoint.find("://"); scheme != std::string::npos) {
        const auto path = endpoint.find('/', scheme + 3);
        endpoint = path == std::string::npos ? std::string("/") : endpoint.substr(path);
    }
    ZVLog([&] { return "410 Gone from " + url; });
    throw ZVIntegrationErrorWithFailureReason(
        ZVLocalizedFormat("The server has removed the endpoint %@ (410 Gone).", {endpoint}));
}
