#include "testkit/FakeServer.h"

#include <httplib.h>
#include <strings.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <stdexcept>
#include <thread>

#include "ZVHelpers.h"

std::vector<std::pair<std::string, std::string>> decodedPairs(const std::string& text) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('&', start), text.size());
        const std::string part = text.substr(start, end - start);
        const size_t equals = std::min(part.find('='), part.size());
        const std::string value = equals < part.size() ? part.substr(equals + 1) : std::string();
        pairs.emplace_back(ZVPercentDecoded(part.substr(0, equals)), ZVPercentDecoded(value));
        start = end + 1;
    }
    return pairs;
}

std::string queryValueOf(const std::string& url, const std::string& name) {
    const auto mark = url.find('?');
    if (mark == std::string::npos) return {};
    for (const auto& [key, value] : decodedPairs(url.substr(mark + 1)))
        if (key == name) return value;
    return {};
}

std::string FakeRequest::header(const std::string& name) const {
    for (const auto& [key, value] : headers) {
        if (strcasecmp(key.c_str(), name.c_str()) == 0) return value;
    }
    return {};
}

bool FakeRequest::hasHeader(const std::string& name) const {
    return std::any_of(headers.begin(), headers.end(),
                       [&](const auto& entry) { return strcasecmp(entry.first.c_str(), name.c_str()) == 0; });
}

std::string FakeRequest::queryValue(const std::string& name) const {
    auto it = query.find(name);
    return it == query.end() ? std::string() : it->second;
}

std::string FakeRequest::queryText(const std::string& name) const { return queryValueOf(target, name); }

FakeResponse FakeResponse::json(std::string body, int status) { return {.status = status, .body = std::move(body)}; }

FakeResponse FakeResponse::xml(std::string body, int status) {
    return {.status = status, .body = std::move(body), .contentType = "application/xml"};
}

FakeResponse FakeResponse::text(std::string body, int status) {
    return {.status = status, .body = std::move(body), .contentType = "text/plain; charset=utf-8"};
}

FakeResponse FakeResponse::redirect(std::string location, int status) {
    return {.status = status, .contentType = "text/plain", .redirectTo = std::move(location)};
}

FakeResponse FakeResponse::endlessBody(std::string chunk) {
    return {.body = std::move(chunk), .endless = true};
}

FakeResponse FakeResponse::hugeContentLength(std::uint64_t length, std::string chunk) {
    return {.body = std::move(chunk), .declaredContentLength = length};
}

FakeResponse FakeResponse::deeplyNestedJSON(std::size_t depth) {
    return json(std::string(depth, '[') + std::string(depth, ']'));
}

namespace {
// What an endless or overlong body repeats when the test names nothing.
std::string defaultStreamChunk() {
    std::string chunk = R"({"issues":[)";
    while (chunk.size() < 64 * 1024) chunk += R"({"key":"WEB-1","fields":{"summary":"again"}},)";
    return chunk;
}
}  // namespace

struct FakeServer::Implementation {
    httplib::Server server;
    std::thread thread;
    int port = 0;
    mutable std::mutex mutex;
    std::condition_variable stopping;
    bool stopped = false;
    std::map<std::pair<std::string, std::string>, Handler> routes;
    Interceptor interceptor;
    std::vector<FakeRequest> requests;
    std::atomic<std::uint64_t> streamed{0};

    bool isStopped() {
        std::lock_guard lock(mutex);
        return stopped;
    }

    /// Streams the body of a hostile answer instead of setting it.
    void stream(const FakeResponse& answer, httplib::Response& response) {
        auto chunk = std::make_shared<const std::string>(answer.body.empty() ? defaultStreamChunk() : answer.body);
        const auto send = [this, chunk](size_t length, httplib::DataSink& sink) {
            if (isStopped()) return false;
            if (!sink.write(chunk->data(), length)) return false;
            streamed += length;
            return true;
        };
        if (answer.endless) {
            response.set_chunked_content_provider(
                answer.contentType, [chunk, send](size_t, httplib::DataSink& sink) { return send(chunk->size(), sink); });
        } else {
            response.set_content_provider(static_cast<size_t>(*answer.declaredContentLength), answer.contentType,
                                          [chunk, send](size_t, size_t length, httplib::DataSink& sink) {
                                              return send(std::min(length, chunk->size()), sink);
                                          });
        }
    }

    void handle(const httplib::Request& request, httplib::Response& response) {
        FakeRequest recorded;
        recorded.method = request.method;
        recorded.path = request.path;
        recorded.target = request.target;
        recorded.body = request.body;
        for (const auto& [key, value] : request.params) recorded.query.emplace(key, value);
        for (const auto& [key, value] : request.headers) {
            // httplib adds these for its own bookkeeping.
            if (key == "REMOTE_ADDR" || key == "REMOTE_PORT" || key == "LOCAL_ADDR" || key == "LOCAL_PORT") continue;
            recorded.headers.emplace_back(key, value);
        }
        Handler handler;
        Interceptor intercepting;
        {
            std::lock_guard lock(mutex);
            requests.push_back(recorded);
            intercepting = interceptor;
            auto it = routes.find({request.method, request.path});
            // A HEAD request is answered by the GET route, as real servers do.
            if (it == routes.end() && request.method == "HEAD") it = routes.find({"GET", request.path});
            if (it == routes.end()) it = routes.find({"*", request.path});
            if (it != routes.end()) handler = it->second;
        }
        std::optional<FakeResponse> intercepted = intercepting ? intercepting(recorded) : std::nullopt;
        FakeResponse answer = intercepted ? std::move(*intercepted)
                              : handler   ? handler(recorded)
                                          : FakeResponse::text("not found", 404);
        if (answer.delaySeconds > 0) {
            std::unique_lock lock(mutex);
            stopping.wait_for(lock, std::chrono::duration<double>(answer.delaySeconds), [&] { return stopped; });
        }
        response.status = answer.status;
        for (const auto& [key, value] : answer.headers) response.set_header(key, value);
        if (!answer.redirectTo.empty()) response.set_header("Location", answer.redirectTo);
        if (answer.endless || answer.declaredContentLength) {
            stream(answer, response);
        } else {
            response.set_content(answer.body, answer.contentType);
        }
    }
};

FakeServer::FakeServer() : _implementation(std::make_unique<Implementation>()) {
    auto* impl = _implementation.get();
    auto handler = [impl](const httplib::Request& request, httplib::Response& response) {
        impl->handle(request, response);
    };
    impl->server.Get(".*", handler);
    impl->server.Post(".*", handler);
    impl->server.Put(".*", handler);
    impl->server.Patch(".*", handler);
    impl->server.Delete(".*", handler);
    impl->server.Options(".*", handler);
    // One request per connection: a client that keeps an idle connection
    // open would otherwise hold the stop of the server for the whole
    // keep-alive period (seconds per test).
    impl->server.set_keep_alive_max_count(1);
    impl->port = impl->server.bind_to_any_port("127.0.0.1");
    if (impl->port <= 0) throw std::runtime_error("the fake server cannot bind to 127.0.0.1");
    impl->thread = std::thread([impl] { impl->server.listen_after_bind(); });
    // A stop before the listening loop runs would be lost and the loop would
    // never end, so the server is only handed out once it listens.
    while (!impl->server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

FakeServer::~FakeServer() { stop(); }

void FakeServer::stop() {
    auto* impl = _implementation.get();
    {
        std::lock_guard lock(impl->mutex);
        impl->stopped = true;
    }
    impl->stopping.notify_all();
    impl->server.stop();
    if (impl->thread.joinable()) impl->thread.join();
}

int FakeServer::port() const { return _implementation->port; }

std::string FakeServer::baseURL() const { return "http://127.0.0.1:" + std::to_string(port()); }

std::string FakeServer::url(const std::string& path) const { return baseURL() + path; }

void FakeServer::route(const std::string& method, const std::string& path, FakeResponse response) {
    route(method, path, [response](const FakeRequest&) { return response; });
}

void FakeServer::route(const std::string& method, const std::string& path, Handler handler) {
    std::lock_guard lock(_implementation->mutex);
    _implementation->routes[{method, path}] = std::move(handler);
}

void FakeServer::intercept(Interceptor interceptor) {
    std::lock_guard lock(_implementation->mutex);
    _implementation->interceptor = std::move(interceptor);
}

void FakeServer::routeSequence(const std::string& method, const std::string& path,
                               std::vector<FakeResponse> responses) {
    auto state = std::make_shared<std::pair<std::mutex, std::vector<FakeResponse>>>();
    state->second = std::move(responses);
    auto next = std::make_shared<size_t>(0);
    route(method, path, [state, next](const FakeRequest&) {
        std::lock_guard lock(state->first);
        if (state->second.empty()) return FakeResponse::text("no response", 500);
        size_t index = std::min(*next, state->second.size() - 1);
        ++*next;
        return state->second[index];
    });
}

std::vector<FakeRequest> FakeServer::requests() const {
    std::lock_guard lock(_implementation->mutex);
    return _implementation->requests;
}

std::vector<FakeRequest> FakeServer::requests(const std::string& path) const {
    std::lock_guard lock(_implementation->mutex);
    std::vector<FakeRequest> matching;
    for (const auto& request : _implementation->requests) {
        if (request.path == path) matching.push_back(request);
    }
    return matching;
}

std::optional<FakeRequest> FakeServer::lastRequest() const {
    std::lock_guard lock(_implementation->mutex);
    if (_implementation->requests.empty()) return std::nullopt;
    return _implementation->requests.back();
}

size_t FakeServer::requestCount() const {
    std::lock_guard lock(_implementation->mutex);
    return _implementation->requests.size();
}

std::uint64_t FakeServer::streamedBytes() const { return _implementation->streamed.load(); }

void FakeServer::clearRequests() {
    std::lock_guard lock(_implementation->mutex);
    _implementation->requests.clear();
}
