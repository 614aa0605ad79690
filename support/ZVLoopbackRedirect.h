#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

/// Receives the one redirect of an OAuth2 login, as a desktop program does:
/// the service sends the user's browser to http://127.0.0.1:<port>/..., and
/// this listener, on loopback only, takes that one request, answers the
/// browser with a short page and stops. It also stops after its time runs
/// out or when it is dropped. Requests for other paths (a browser's
/// favicon) get 404 and do not end it.
class ZVLoopbackRedirect {
public:
    /// Gets the request's target ("/oauth2/callback?code=...") and gives the
    /// page's message for the browser.
    using Handler = std::function<std::string(const std::string& target)>;

    /// Listens on a free port of 127.0.0.1 for `path`; absent when no socket
    /// could be opened. `onTimeout` runs when no redirect came in time.
    static std::unique_ptr<ZVLoopbackRedirect> listen(std::string path, Handler onRedirect,
                                                     std::function<void()> onTimeout,
                                                     std::chrono::milliseconds timeout = std::chrono::minutes(5));
    ~ZVLoopbackRedirect();
    ZVLoopbackRedirect(const ZVLoopbackRedirect&) = delete;
    ZVLoopbackRedirect& operator=(const ZVLoopbackRedirect&) = delete;

    int port() const { return _port; }
    /// "http://127.0.0.1:<port><path>"
    std::string redirectURI() const;

private:
    struct State;
    ZVLoopbackRedirect(std::shared_ptr<State> state, int port, std::string path);
    std::shared_ptr<State> _state;
    int _port;
    std::string _path;
};
