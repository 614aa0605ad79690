#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

/// A mutable HTTP request: URL, method, headers and body. Header names
/// compare without case; a header set to an empty value is not sent.
class ZVURLRequest {
public:
    struct ContentType {
        static constexpr const char* json = "application/json";
        static constexpr const char* xml = "application/xml";
        static constexpr const char* wwwForm = "application/x-www-form-urlencoded";
    };

    ZVURLRequest() = default;
    explicit ZVURLRequest(std::string address) : url(std::move(address)) {}

    std::string url;
    std::string method = "GET";
    std::string body;
    /// Overrides the session's total timeout for this request.
    std::optional<double> timeoutSeconds;
    /// When false a redirect comes back as the answer, for the caller to
    /// decide what goes to the new address.
    bool followsRedirects = true;
    /// 64 MiB: far above the largest page a service sends (a JIRA search page
    /// of 999 issues with all their fields is a few megabytes).
    static constexpr std::size_t defaultMaximumResponseBytes = std::size_t{64} << 20;
    /// The most bytes of reply body the transport takes in for this request:
    /// a longer or endless body, or a Content-Length above it, ends the
    /// transfer as no reply. The download center puts its owner's cap here
    /// before the owner's setup and the modifier, which may change it.
    std::size_t maximumResponseBytes = defaultMaximumResponseBytes;

    /// The header's value, absent when not set.
    std::optional<std::string> header(const std::string& name) const;
    /// Sets (replaces) a header.
    void setHeader(const std::string& name, const std::string& value);
    void removeHeader(const std::string& name);
    /// The value of a header, created empty when missing; assign to set it.
    std::string& operator[](const std::string& name);
    std::string operator[](const std::string& name) const { return header(name).value_or(""); }
    const std::vector<std::pair<std::string, std::string>>& headers() const { return _headers; }

    /// A basic Authorization header built from the two.
    void setUsername(const std::string& username, const std::string& password);
    /// An Authorization header that carries the token ("Bearer <token>").
    void setBearerToken(const std::string& token);
    /// Serializes the value as the body and sets the JSON content type.
    void setJSONBody(const nlohmann::json& value);
    /// Form-encodes the pairs as the body and sets the form content type.
    void setWWWFormBody(const std::vector<std::pair<std::string, std::string>>& pairs);

    void addJSONAcceptToHeader() { setAcceptType(ContentType::json); }
    void addXMLAcceptToHeader() { setAcceptType(ContentType::xml); }
    void addJSONContentToHeader() { setContentType(ContentType::json); }
    void addXMLContentToHeader() { setContentType(ContentType::xml); }
    void addWWWFormContentToHeader() { setContentType(ContentType::wwwForm); }

    std::optional<std::string> acceptType() const { return header("Accept"); }
    void setAcceptType(const std::string& value) { setHeader("Accept", value); }
    std::optional<std::string> contentType() const { return header("Content-Type"); }
    void setContentType(const std::string& value) { setHeader("Content-Type", value); }
    std::optional<std::string> userAgent() const { return header("User-Agent"); }
    void setUserAgent(const std::string& value) { setHeader("User-Agent", value); }

private:
    std::vector<std::pair<std::string, std::string>> _headers;
};
