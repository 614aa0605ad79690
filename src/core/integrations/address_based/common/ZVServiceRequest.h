#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "ZVHTTPSession.h"
#include "ZVXML.h"

/// How a service takes the account's credentials on each request. A
/// service names its style; the kit applies it to every request that goes
/// to the account's own host, and to no other.
struct ZVCredentialStyle {
    enum class Kind {
        /// Nothing is sent (a public call, credentials inside the body, or a
        /// session cookie that logs the request in).
        none,
        /// Basic user name and password.
        basicUsernamePassword,
        /// Basic with the token as the user name and a fixed word
        /// (`name`: "X", "api_token") as the password.
        basicTokenAndWord,
        /// "Authorization: Bearer <token>".
        bearerToken,
        /// A header of the service's own (`name`: "X-Redmine-API-Key") with the token.
        tokenHeader,
        /// An Authorization scheme of the service's own; `name` is the value
        /// with "%@" where the token goes ("Token token=%@").
        authorizationScheme,
        /// A query parameter (`name`: "api_key") with the token.
        queryParameter,
        /// The service's logIn() gives a session token, kept in memory only
        /// and sent as `sessionStyle` says; a refused request logs in once more.
        session,
    };
    Kind kind = Kind::none;
    std::string name;
    /// How the session token travels (for `session`): one of the kinds above.
    Kind sessionStyle = Kind::bearerToken;
    std::string sessionName;
    /// For `session`: a query parameter that also names the token on every
    /// request that writes (any method but GET and HEAD), for a service that
    /// takes a write only with the session in its address ("sessionID").
    std::string sessionWriteParameter;
};

/// One request of a service: where it goes, what it sends, and what it is
/// for, which decides how a failure reads.
struct ZVServiceRequest {
    enum class Purpose { loading, posting };

    std::string method = "GET";
    /// Below the account's base URL ("/projects.json"), or a whole URL (a
    /// next page's address that a reply named).
    std::string path;
    std::vector<std::pair<std::string, std::string>> query;
    std::vector<std::pair<std::string, std::string>> headers;
    std::optional<nlohmann::json> json;
    std::optional<std::string> xml;
    std::optional<std::vector<std::pair<std::string, std::string>>> form;
    Purpose purpose = Purpose::loading;
    /// A larger cap on the reply's body than the download centre's default.
    std::optional<std::size_t> replyLimit;
    /// False for a public call that the service answers anyone: it goes out
    /// without the account's credentials and headers.
    bool sendsCredentials = true;
    /// How this one request takes the credentials, in place of the
    /// account's style: a log-in by user name and password that gives the
    /// token of every later request.
    std::optional<ZVCredentialStyle> credentialStyle;

    static ZVServiceRequest get(std::string path) { return {.path = std::move(path)}; }
    static ZVServiceRequest postJSON(std::string path, nlohmann::json body) {
        return {.method = "POST", .path = std::move(path), .json = std::move(body), .purpose = Purpose::posting};
    }
    static ZVServiceRequest postXML(std::string path, std::string body) {
        return {.method = "POST", .path = std::move(path), .xml = std::move(body), .purpose = Purpose::posting};
    }
    static ZVServiceRequest postForm(std::string path, std::vector<std::pair<std::string, std::string>> pairs) {
        return {.method = "POST", .path = std::move(path), .form = std::move(pairs), .purpose = Purpose::posting};
    }
};

/// A reply that passed the kit's tests: a status of 200 to 299.
struct ZVServiceReply : ZVHTTPResponse {
    /// The body as JSON, or nothing.
    std::optional<nlohmann::json> json() const;
    /// The body as XML, or nothing.
    std::optional<ZVXMLDocument> xml() const;
};
