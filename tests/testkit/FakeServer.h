#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// The name=value pairs of a query or form text ("a=1&b=x%20y"), decoded
/// ("+" as a space), in order; a value is all after its pair's first "=".
std::vector<std::pair<std::string, std::string>> decodedPairs(const std::string& text);
/// The first value of that name in the query of `url`, empty when absent.
std::string queryValueOf(const std::string& url, const std::string& name);

/// One request as the fake server received it.
struct FakeRequest {
    std::string method;
    std::string path;
    std::multimap<std::string, std::string> query;
    /// The path and query as the request line carried them.
    std::string target;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    /// First header of that name (case-insensitive), empty when absent.
    std::string header(const std::string& name) const;
    bool hasHeader(const std::string& name) const;
    /// First query parameter of that name, empty when absent.
    std::string queryValue(const std::string& name) const;
    /// The same read from the target: all after the parameter's first "=",
    /// decoded ("+" as a space). `query` keeps only what follows the last
    /// "=" of a value that holds one, as in "jql=assignee=currentUser()".
    std::string queryText(const std::string& name) const;
};

/// What the fake server answers on a route.
struct FakeResponse {
    int status = 200;
    std::string body;
    std::string contentType = "application/json";
    std::vector<std::pair<std::string, std::string>> headers;
    /// Waits this long before answering (interrupted when the server stops).
    double delaySeconds = 0;
    /// When set, answers 302 with this Location.
    std::string redirectTo;
    /// A hostile server: the body is sent over and over, in chunks without
    /// a Content-Length, until the client hangs up or the server stops.
    bool endless = false;
    /// A hostile server: this Content-Length is declared instead of the
    /// body's, and the body is sent over and over towards it for as long as
    /// the client reads.
    std::optional<std::uint64_t> declaredContentLength;

    static FakeResponse json(std::string body, int status = 200);
    static FakeResponse xml(std::string body, int status = 200);
    static FakeResponse text(std::string body, int status = 200);
    static FakeResponse redirect(std::string location, int status = 302);

    // Hostile and broken servers.

    /// A body that never ends: `chunk` (64 KiB of JSON-looking text when
    /// empty) again and again.
    static FakeResponse endlessBody(std::string chunk = {});
    /// Declares `length` bytes and sends `chunk` (as above) towards them.
    static FakeResponse hugeContentLength(std::uint64_t length, std::string chunk = {});
    /// Valid JSON of `depth` arrays, each the only element of the one around it.
    static FakeResponse deeplyNestedJSON(std::size_t depth);
};

/// An HTTP server on 127.0.0.1 and a free port, running on background
/// threads while it lives. It records every request and answers from the
/// routes the test sets (exact path, any query); others get 404.
class FakeServer {
public:
    using Handler = std::function<FakeResponse(const FakeRequest&)>;

    FakeServer();
    ~FakeServer();
    FakeServer(const FakeServer&) = delete;
    FakeServer& operator=(const FakeServer&) = delete;

    int port() const;
    /// "http://127.0.0.1:<port>"
    std::string baseURL() const;
    /// baseURL() + path
    std::string url(const std::string& path) const;

    /// Answers `method` ("GET", "POST", ..., or "*" for any) on `path`.
    /// A later route for the same method and path replaces the earlier one.
    void route(const std::string& method, const std::string& path, FakeResponse response);
    void route(const std::string& method, const std::string& path, Handler handler);
    /// Answers the listed responses one after another; the last one repeats.
    void routeSequence(const std::string& method, const std::string& path, std::vector<FakeResponse> responses);

    /// Asked before the routes: an answer it gives is sent instead of the
    /// route's (a server that refuses everything, or sends it elsewhere).
    using Interceptor = std::function<std::optional<FakeResponse>(const FakeRequest&)>;
    void intercept(Interceptor interceptor);

    std::vector<FakeRequest> requests() const;
    std::optional<FakeRequest> lastRequest() const;
    size_t requestCount() const;
    /// Requests with that path (any method).
    std::vector<FakeRequest> requests(const std::string& path) const;
    void clearRequests();
    /// The bytes of endless and overlong bodies that clients took in so far.
    std::uint64_t streamedBytes() const;

    /// Stops listening; pending delayed answers end at once.
    void stop();

private:
    struct Implementation;
    std::unique_ptr<Implementation> _implementation;
};
