#include "ZVLoopbackRedirect.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "ZVLog.h"

struct ZVLoopbackRedirect::State {
    int listener = -1;
    int stopPipe[2] = {-1, -1};
    ~State() {
        for (const int descriptor : {listener, stopPipe[0], stopPipe[1]})
            if (descriptor >= 0) close(descriptor);
    }
};

namespace {
/// Reads the request's head, up to its blank line, within a few seconds.
std::string requestHead(int connection) {
    std::string head;
    char buffer[1024];
    while (head.find("\r\n\r\n") == std::string::npos && head.size() < 16 * 1024) {
        pollfd readable{connection, POLLIN, 0};
        if (poll(&readable, 1, 5000) <= 0) break;
        const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
        if (count <= 0) break;
        head.append(buffer, static_cast<std::size_t>(count));
    }
    return head;
}

void answer(int connection, int status, const std::string& message) {
    std::string escaped;
    for (const char c : message) {
        if (c == '<') escaped += "&lt;";
        else if (c == '>') escaped += "&gt;";
        else if (c == '&') escaped += "&amp;";
        else escaped += c;
    }
    const std::string body = "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>Norvo</title></head>"
                             "<body style=\"font-family: sans-serif; margin: 3em\"><p>" + escaped + "</p></body></html>";
    const std::string reply = "HTTP/1.1 " + std::to_string(status) + (status == 200 ? " OK" : " Not Found") +
                              "\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
                              std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    std::size_t sent = 0;
    while (sent < reply.size()) {
        const ssize_t count = send(connection, reply.data() + sent, reply.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) break;
        sent += static_cast<std::size_t>(count);
    }
}
}  // namespace

std::unique_ptr<ZVLoopbackRedirect> ZVLoopbackRedirect::listen(std::string path, Handler onRedirect,
                                                               std::function<void()> onTimeout,
                                                               std::chrono::milliseconds timeout) {
    auto state = std::make_shared<State>();
    state->listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (state->listener < 0 || pipe2(state->stopPipe, O_CLOEXEC) != 0) return nullptr;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    if (bind(state->listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(state->listener, 4) != 0 ||
        getsockname(state->listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return nullptr;
    const int port = ntohs(address.sin_port);

    // The thread owns a share of the sockets, so that dropping the listener
    // from inside its own handler is safe.
    std::thread([state, path, onRedirect = std::move(onRedirect), onTimeout = std::move(onTimeout), timeout] {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                ZVLog([] { return std::string("The authorization's redirect did not come in time"); });
                if (onTimeout) onTimeout();
                return;
            }
            pollfd watched[2] = {{state->listener, POLLIN, 0}, {state->stopPipe[0], POLLIN, 0}};
            if (poll(watched, 2, static_cast<int>(left.count())) < 0 || (watched[1].revents & POLLIN)) return;
            if (!(watched[0].revents & POLLIN)) continue;
            const int connection = accept4(state->listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0) continue;
            const std::string head = requestHead(connection);
            // "GET /oauth2/callback?code=...&state=... HTTP/1.1"
            const std::size_t space = head.find(' ');
            const std::size_t end = space == std::string::npos ? space : head.find(' ', space + 1);
            const std::string target = end == std::string::npos ? "" : head.substr(space + 1, end - space - 1);
            if (target.substr(0, target.find('?')) != path) {
                answer(connection, 404, "Not found.");
                close(connection);
                continue;
            }
            answer(connection, 200, onRedirect(target));
            close(connection);
            return;
        }
    }).detach();
    return std::unique_ptr<ZVLoopbackRedirect>(new ZVLoopbackRedirect(std::move(state), port, std::move(path)));
}

ZVLoopbackRedirect::ZVLoopbackRedirect(std::shared_ptr<State> state, int port, std::string path)
    : _state(std::move(state)), _port(port), _path(std::move(path)) {}

ZVLoopbackRedirect::~ZVLoopbackRedirect() {
    const char stop = 's';
    [[maybe_unused]] const ssize_t written = write(_state->stopPipe[1], &stop, 1);
}

std::string ZVLoopbackRedirect::redirectURI() const { return "http://127.0.0.1:" + std::to_string(_port) + _path; }
