#include "ZVCurlSession.h"

#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "ZVLog.h"

namespace {

void ensureGlobalInit() {
    static const bool initialized = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    (void)initialized;
}

struct TransferState {
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    std::size_t maximumBodyBytes = 0;
    std::size_t headerBytes = 0;
    /// Why the transfer was cut off for its size; empty while it wasn't.
    std::string tooLarge;
};

// Taking fewer bytes than were handed over makes libcurl end the transfer.
size_t writeBody(char* data, size_t size, size_t count, void* user) {
    auto* state = static_cast<TransferState*>(user);
    const size_t length = size * count;
    if (length > state->maximumBodyBytes - std::min(state->body.size(), state->maximumBodyBytes)) {
        state->tooLarge = "the body exceeds " + std::to_string(state->maximumBodyBytes) + " bytes";
        return 0;
    }
    // Grown in powers of two and never past the cap, so that the cap bounds
    // the memory too: std::string takes at least twice its capacity at each
    // growth, and from a power of two it meets a cap of 64 MiB exactly.
    if (state->body.size() + length > state->body.capacity()) {
        std::size_t capacity = std::size_t{64} << 10;
        while (capacity < state->body.size() + length) capacity *= 2;
        state->body.reserve(std::min(capacity, state->maximumBodyBytes));
    }
    state->body.append(data, length);
    return length;
}

size_t writeHeader(char* data, size_t size, size_t count, void* user) {
    auto* state = static_cast<TransferState*>(user);
    state->headerBytes += size * count;
    if (state->headerBytes > ZVCurlSession::maximumHeaderBytes) {
        state->tooLarge = "the headers exceed " + std::to_string(ZVCurlSession::maximumHeaderBytes) + " bytes";
        return 0;
    }
    std::string line(data, size * count);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    if (line.rfind("HTTP/", 0) == 0) {
        // A new status line: the headers of an earlier (redirect) answer are dropped.
        state->headers.clear();
    } else if (auto colon = line.find(':'); colon != std::string::npos) {
        std::string value = line.substr(colon + 1);
        size_t start = value.find_first_not_of(" \t");
        state->headers.emplace_back(line.substr(0, colon), start == std::string::npos ? "" : value.substr(start));
    }
    return size * count;
}

ZVDownloadCenterError::Kind errorKind(CURLcode code) {
    switch (code) {
        case CURLE_URL_MALFORMAT:
        case CURLE_UNSUPPORTED_PROTOCOL: return ZVDownloadCenterError::Kind::invalidURL;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_CONNECT: return ZVDownloadCenterError::Kind::couldNotConnect;
        case CURLE_OPERATION_TIMEDOUT: return ZVDownloadCenterError::Kind::timedOut;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE: return ZVDownloadCenterError::Kind::tlsFailure;
        case CURLE_TOO_MANY_REDIRECTS: return ZVDownloadCenterError::Kind::tooManyRedirects;
        default: return ZVDownloadCenterError::Kind::transferFailed;
    }
}

struct CookieLine {
    ZVHTTPCookie cookie;
    bool includeSubdomains = false;
};

// A line of the Netscape cookie format that libcurl lists.
std::optional<CookieLine> parseCookieLine(const std::string& line) {
    std::vector<std::string> fields;
    std::string field;
    std::istringstream in(line);
    while (std::getline(in, field, '\t')) fields.push_back(field);
    if (fields.size() == 6) fields.emplace_back();
    if (fields.size() < 7) return std::nullopt;
    CookieLine result;
    std::string domain = fields[0];
    constexpr std::string_view httpOnlyPrefix = "#HttpOnly_";
    if (domain.rfind(httpOnlyPrefix, 0) == 0) {
        result.cookie.httpOnly = true;
        domain.erase(0, httpOnlyPrefix.size());
    }
    if (!domain.empty() && domain.front() == '.') domain.erase(0, 1);
    result.cookie.domain = domain;
    result.includeSubdomains = fields[1] == "TRUE";
    result.cookie.path = fields[2];
    result.cookie.secure = fields[3] == "TRUE";
    long long expires = std::atoll(fields[4].c_str());
    if (expires > 0) result.cookie.expires = ZVDate(std::chrono::duration<double>(static_cast<double>(expires)));
    result.cookie.name = fields[5];
    result.cookie.value = fields[6];
    return result;
}

struct URLParts {
    std::string scheme;
    std::string host;
    std::string path;
};

std::optional<URLParts> splitURL(const std::string& url) {
    CURLU* handle = curl_url();
    if (!handle) return std::nullopt;
    std::optional<URLParts> result;
    if (curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK) {
        char* scheme = nullptr;
        char* host = nullptr;
        char* path = nullptr;
        curl_url_get(handle, CURLUPART_SCHEME, &scheme, 0);
        curl_url_get(handle, CURLUPART_HOST, &host, 0);
        curl_url_get(handle, CURLUPART_PATH, &path, 0);
        if (scheme && host) result = URLParts{scheme, host, path ? path : "/"};
        curl_free(scheme);
        curl_free(host);
        curl_free(path);
    }
    curl_url_cleanup(handle);
    if (result) {
        for (auto& c : result->host) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return result;
}

bool cookieMatches(const CookieLine& line, const URLParts& url) {
    const std::string& domain = line.cookie.domain;
    bool hostMatches = strcasecmp(url.host.c_str(), domain.c_str()) == 0;
    if (!hostMatches && line.includeSubdomains && url.host.size() > domain.size()) {
        hostMatches = strcasecmp(url.host.c_str() + (url.host.size() - domain.size()), domain.c_str()) == 0 &&
                      url.host[url.host.size() - domain.size() - 1] == '.';
    }
    if (!hostMatches) return false;
    if (line.cookie.secure && url.scheme != "https") return false;
    const std::string& path = line.cookie.path.empty() ? std::string("/") : line.cookie.path;
    if (url.path.rfind(path, 0) != 0) return false;
    return url.path.size() == path.size() || path.back() == '/' || url.path[path.size()] == '/';
}

}  // namespace

ZVCurlSession::ZVCurlSession() {
    ensureGlobalInit();
    _share = curl_share_init();
    curl_share_setopt(_share, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    curl_share_setopt(_share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    curl_share_setopt(_share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    curl_share_setopt(_share, CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT);
    curl_share_setopt(_share, CURLSHOPT_USERDATA, this);
    curl_lock_function lockFunction = [](CURL*, curl_lock_data data, curl_lock_access, void* user) {
        auto* session = static_cast<ZVCurlSession*>(user);
        session->_shareLocks[static_cast<size_t>(data) % 8].lock();
    };
    curl_unlock_function unlockFunction = [](CURL*, curl_lock_data data, void* user) {
        auto* session = static_cast<ZVCurlSession*>(user);
        session->_shareLocks[static_cast<size_t>(data) % 8].unlock();
    };
    curl_share_setopt(_share, CURLSHOPT_LOCKFUNC, lockFunction);
    curl_share_setopt(_share, CURLSHOPT_UNLOCKFUNC, unlockFunction);
}

ZVCurlSession::~ZVCurlSession() { curl_share_cleanup(_share); }

void ZVCurlSession::setTimeouts(double connectSeconds, double totalSeconds) {
    std::lock_guard lock(_settingsMutex);
    _connectTimeout = connectSeconds;
    _totalTimeout = totalSeconds;
}

double ZVCurlSession::connectTimeout() const {
    std::lock_guard lock(_settingsMutex);
    return _connectTimeout;
}

double ZVCurlSession::totalTimeout() const {
    std::lock_guard lock(_settingsMutex);
    return _totalTimeout;
}

ZVHTTPResult ZVCurlSession::send(const ZVURLRequest& request) {
    ZVHTTPResult result;
    CURL* curl = curl_easy_init();
    if (!curl) {
        result.error = ZVDownloadCenterError{ZVDownloadCenterError::Kind::transferFailed, request.url, "no curl handle"};
        return result;
    }
    TransferState state;
    state.maximumBodyBytes = request.maximumResponseBytes;
    struct curl_slist* headerList = nullptr;
    for (const auto& [name, value] : request.headers()) {
        // "Name:" with nothing after it keeps libcurl from sending its own default.
        std::string line = name + ":" + (value.empty() ? "" : " " + value);
        headerList = curl_slist_append(headerList, line.c_str());
    }
    if (!request.header("Expect")) headerList = curl_slist_append(headerList, "Expect:");

    const double connect = connectTimeout();
    const double total = request.timeoutSeconds.value_or(totalTimeout());
    curl_easy_setopt(curl, CURLOPT_SHARE, _share);
    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, request.followsRedirects ? 1L : 0L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_COOKIEFILE, "");
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connect * 1000));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(total * 1000));
    // Refuses a declared Content-Length above the cap before any body comes;
    // writeBody cuts off a body that grows past it without declaring it.
    curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(request.maximumResponseBytes));
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headerList);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &state);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, writeHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &state);

    const std::string& method = request.method;
    if (method == "HEAD") {
        curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    } else if (method == "GET" && request.body.empty()) {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    } else {
        if (method == "POST" || !request.body.empty()) {
            curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
            curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.data());
        }
        if (method != "POST") curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    }

    CURLcode code = curl_easy_perform(curl);
    if (code == CURLE_OK) {
        long status = 0;
        char* effectiveURL = nullptr;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        curl_easy_getinfo(curl, CURLINFO_EFFECTIVE_URL, &effectiveURL);
        ZVHTTPResponse response;
        response.statusCode = static_cast<int>(status);
        response.url = effectiveURL ? effectiveURL : request.url;
        response.headers = std::move(state.headers);
        response.body = std::move(state.body);
        result.response = std::move(response);
    } else if (code == CURLE_FILESIZE_EXCEEDED || !state.tooLarge.empty()) {
        const std::string reason = state.tooLarge.empty() ? "the declared Content-Length exceeds " +
                                                                std::to_string(request.maximumResponseBytes) + " bytes"
                                                          : state.tooLarge;
        result.error = ZVDownloadCenterError{ZVDownloadCenterError::Kind::replyTooLarge, request.url, reason};
    } else {
        result.error = ZVDownloadCenterError{errorKind(code), request.url, curl_easy_strerror(code)};
    }
    curl_slist_free_all(headerList);
    curl_easy_cleanup(curl);
    return result;
}

std::vector<std::string> ZVCurlSession::cookieLines() {
    std::vector<std::string> lines;
    CURL* curl = curl_easy_init();
    if (!curl) return lines;
    curl_easy_setopt(curl, CURLOPT_SHARE, _share);
    struct curl_slist* list = nullptr;
    curl_easy_getinfo(curl, CURLINFO_COOKIELIST, &list);
    for (auto* item = list; item; item = item->next) lines.emplace_back(item->data);
    curl_slist_free_all(list);
    curl_easy_cleanup(curl);
    return lines;
}

std::vector<ZVHTTPCookie> ZVCurlSession::cookies(const std::string& url) {
    std::vector<ZVHTTPCookie> result;
    auto parts = splitURL(url);
    if (!parts) return result;
    for (const auto& line : cookieLines()) {
        auto parsed = parseCookieLine(line);
        if (parsed && cookieMatches(*parsed, *parts)) result.push_back(parsed->cookie);
    }
    return result;
}

void ZVCurlSession::clearCookies(const std::string& url) {
    auto parts = splitURL(url);
    if (!parts) return;
    std::lock_guard lock(_cookieEditMutex);
    std::vector<std::string> kept;
    for (const auto& line : cookieLines()) {
        auto parsed = parseCookieLine(line);
        if (!parsed || !cookieMatches(*parsed, *parts)) kept.push_back(line);
    }
    CURL* curl = curl_easy_init();
    if (!curl) return;
    curl_easy_setopt(curl, CURLOPT_SHARE, _share);
    curl_easy_setopt(curl, CURLOPT_COOKIELIST, "ALL");
    for (const auto& line : kept) curl_easy_setopt(curl, CURLOPT_COOKIELIST, line.c_str());
    curl_easy_cleanup(curl);
}

void ZVCurlSession::clearAllCookies() {
    std::lock_guard lock(_cookieEditMutex);
    CURL* curl = curl_easy_init();
    if (!curl) return;
    curl_easy_setopt(curl, CURLOPT_SHARE, _share);
    curl_easy_setopt(curl, CURLOPT_COOKIELIST, "ALL");
    curl_easy_cleanup(curl);
}
