#include "FuzzEnvironment.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "ZVHTTPSession.h"
#include "ZVKeychainAccess.h"
#include "ZVPreferences.h"
#include "ZVThreading.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/ui/ZVUserInterface.h"

namespace {

class ReplyingSession : public ZVHTTPSession {
public:
    ZVHTTPResult send(const ZVURLRequest& request) override {
        std::lock_guard guard(mutex);
        ZVHTTPResponse response;
        response.statusCode = statusCode;
        response.url = request.url;
        response.headers = {{"Content-Type", "application/octet-stream"}};
        response.body = body;
        return {std::move(response), std::nullopt};
    }
    std::vector<ZVHTTPCookie> cookies(const std::string&) override { return {}; }
    void clearCookies(const std::string&) override {}
    void clearAllCookies() override {}

    std::mutex mutex;
    int statusCode = 200;
    std::string body;
};

class MemoryKeychain : public ZVKeychainAccess {
public:
    std::optional<std::string> password(const std::string& username, const std::string& account) override {
        std::lock_guard guard(mutex);
        auto found = items.find({username, account});
        if (found == items.end()) return std::nullopt;
        return found->second;
    }
    bool savePassword(const std::string& password, const std::string& username, const std::string& account) override {
        std::lock_guard guard(mutex);
        items[{username, account}] = password;
        return true;
    }
    bool removePassword(const std::string& username, const std::string& account) override {
        std::lock_guard guard(mutex);
        return items.erase({username, account}) > 0;
    }

    std::mutex mutex;
    std::map<std::pair<std::string, std::string>, std::string> items;
};

class FirstButtonUserInterface : public ZVUserInterface {
public:
    ZVAlertResponse runModal(const ZVAlert&) override { return {0, false}; }
    std::optional<std::string> runModalWithTextField(const ZVAlert&, const std::string&, bool) override {
        return std::nullopt;
    }
    std::optional<std::size_t> runModalWithChoice(const ZVAlert&, const std::vector<std::string>&,
                                                  std::size_t) override {
        return std::nullopt;
    }
    void beep() override {}
    void showBanner(const std::string&, const std::string&) override {}
    bool openURL(const std::string&) override { return false; }
};

class SilentTimer : public ZVRepeatingTimer {
public:
    void invalidate() override { valid = false; }
    bool isValid() const override { return valid; }
    bool valid = true;
};

class SilentTimerFactory : public ZVTimerFactory {
public:
    std::unique_ptr<ZVRepeatingTimer> makeRepeatingTimer(double, std::function<void()>) override {
        return std::make_unique<SilentTimer>();
    }
    void performAfterDelay(double, std::function<void()>) override {}
};

// Blocks meant for the main thread run at once on the fuzzing thread;
// background blocks are dropped, so that no refresh runs beside the input.
class InlineMainQueue : public ZVMainQueue {
public:
    void post(std::function<void()> block) override { block(); }
    bool isMainThread() const override { return true; }
};

std::shared_ptr<ReplyingSession>& session() {
    static auto replying = std::make_shared<ReplyingSession>();
    return replying;
}

}  // namespace

void FuzzEnvironment::setUp() {
    static std::once_flag once;
    std::call_once(once, [] {
        char folder[] = "/tmp/norvo-fuzz-XXXXXX";
        if (!::mkdtemp(folder)) std::abort();
        const std::string home = folder;
        ::setenv("HOME", home.c_str(), 1);
        ::setenv("XDG_DATA_HOME", (home + "/data").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (home + "/config").c_str(), 1);
        ::setenv("XDG_CACHE_HOME", (home + "/cache").c_str(), 1);
        ZVPreferences::resetShared(home + "/Preferences.plist");

        static MemoryKeychain keychain;
        ZVKeychainAccess::install(&keychain);
        static FirstButtonUserInterface userInterface;
        ZVUserInterface::install(&userInterface);
        static SilentTimerFactory timers;
        ZVTimerFactory::install(&timers);
        static InlineMainQueue mainQueue;
        ZVMainQueue::install(&mainQueue);
        ZVHTTPSession::setShared(session());
        ZVIntegrationCenter::shared();
    });
}

void FuzzEnvironment::setReply(int statusCode, std::string body) {
    std::lock_guard guard(session()->mutex);
    session()->statusCode = statusCode;
    session()->body = std::move(body);
}
