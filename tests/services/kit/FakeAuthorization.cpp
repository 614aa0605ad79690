#include "services/kit/FakeAuthorization.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

FakeAuthorization::FakeAuthorization(FakeServer& server, std::string authorizePath,
                                     std::string tokenPath)
    : _server(server), _authorizePath(std::move(authorizePath)) {
    server.route("GET", _authorizePath, [](const FakeRequest& request) {
        const std::string code = request.queryValue("answer");
        return FakeResponse::redirect(request.queryText("redirect_uri") +
                                      (code == "deny" ? "?error=access_denied" : "?code=" + code) +
                                      "&state=" + request.queryValue("state"));
    });
    server.route("POST", tokenPath, [issued = _issued](const FakeRequest& request) {
        if (request.body.find("code=good") == std::string::npos &&
            request.body.find("refresh_token=") == std::string::npos)
            return FakeResponse::json(R"({"error": "invalid_grant"})", 400);
        return FakeResponse::json(nlohmann::json{
            {"access_token", "token-" + std::to_string(++*issued)},
            {"refresh_token", "rt-secret"},
            {"expires_in", 3600}}.dump());
    });
}

std::string FakeAuthorization::approve(const std::string& openedURL,
                                       const std::string& code) const {
    const std::string query = openedURL.substr(openedURL.find('?') + 1);
    httplib::Client service("127.0.0.1", _server.port());
    const auto page = service.Get(_authorizePath + "?" + query + "&answer=" + code);
    return page ? page->get_header_value("Location") : "<no answer>";
}

std::string FakeAuthorization::openLoopbackPage(const std::string& location) {
    const auto at = location.find("127.0.0.1:");
    if (at == std::string::npos) return "<not a loopback address: " + location + ">";
    const std::string rest = location.substr(at + 10);
    httplib::Client norvo("127.0.0.1", std::stoi(rest));
    const auto page = norvo.Get(rest.substr(rest.find('/')));
    return page ? page->body : "<no page>";
}
