#include "ZVSecretServiceKeychain.h"

#include <libsecret/secret.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>

#include "ZVLog.h"

namespace {

const SecretSchema& norvoSchema() {
    static const SecretSchema schema = {"com.tesselwick.norvo.Password",
                                        SECRET_SCHEMA_NONE,
                                        {{"username", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                         {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                         {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}}};
    return schema;
}

std::string takeError(GError*& error) {
    std::string message = error && error->message ? error->message : "unknown error";
    if (error) g_error_free(error);
    error = nullptr;
    return message;
}

// Without a session bus, GLib would try to launch one; that is never wanted here.
bool sessionBusReachable() {
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address && *address) return true;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    std::error_code ignored;
    return runtime && std::filesystem::exists(std::string(runtime) + "/bus", ignored);
}

}  // namespace

ZVSecretServiceKeychain::ZVSecretServiceKeychain(std::string fallbackFilePath)
    : _fallback(std::move(fallbackFilePath)) {}

bool ZVSecretServiceKeychain::isSecretServiceAvailable() {
    std::lock_guard lock(_mutex);
    if (_available) return *_available;
    if (!sessionBusReachable()) {
        _available = false;
        noteFallback("no session bus");
        return false;
    }
    GError* error = nullptr;
    gchar* found = secret_password_lookup_sync(&norvoSchema(), nullptr, &error, "username", "", "account",
                                               "com.tesselwick.norvo.probe", nullptr);
    if (found) secret_password_free(found);
    _available = error == nullptr;
    if (error) noteFallback(takeError(error));
    return *_available;
}

void ZVSecretServiceKeychain::noteFallback(const std::string& why) {
    if (_fallbackLogged) return;
    _fallbackLogged = true;
    // Logged even when debug logging is off: the user should learn where secrets went.
    bool wasEnabled = ZVLogIsEnabled();
    ZVLogSetEnabled(true);
    ZVLog([&] {
        return "The Secret Service is not available (" + why + "); passwords are kept in " + _fallback.filePath() +
               ", readable by this user only.";
    });
    ZVLogSetEnabled(wasEnabled);
}

std::optional<std::string> ZVSecretServiceKeychain::password(const std::string& username,
                                                             const std::string& account) {
    std::lock_guard lock(_mutex);
    if (isSecretServiceAvailable()) {
        GError* error = nullptr;
        gchar* found = secret_password_lookup_sync(&norvoSchema(), nullptr, &error, "username", username.c_str(),
                                                   "account", account.c_str(), nullptr);
        if (found) {
            std::string result(found);
            secret_password_free(found);
            return result;
        }
        if (error) ZVLog([&] { return "Key store lookup failed: " + takeError(error); });
    }
    return _fallback.password(username, account);
}

bool ZVSecretServiceKeychain::savePassword(const std::string& password, const std::string& username,
                                           const std::string& account) {
    std::lock_guard lock(_mutex);
    if (isSecretServiceAvailable()) {
        GError* error = nullptr;
        const std::string label = "Norvo: " + username + " (" + account + ")";
        gboolean stored =
            secret_password_store_sync(&norvoSchema(), SECRET_COLLECTION_DEFAULT, label.c_str(), password.c_str(),
                                       nullptr, &error, "username", username.c_str(), "account", account.c_str(),
                                       nullptr);
        if (stored) {
            _fallback.removePassword(username, account);
            return true;
        }
        noteFallback(takeError(error));
    }
    return _fallback.savePassword(password, username, account);
}

bool ZVSecretServiceKeychain::removePassword(const std::string& username, const std::string& account) {
    std::lock_guard lock(_mutex);
    bool removed = false;
    if (isSecretServiceAvailable()) {
        GError* error = nullptr;
        removed = secret_password_clear_sync(&norvoSchema(), nullptr, &error, "username", username.c_str(),
                                             "account", account.c_str(), nullptr);
        if (error) ZVLog([&] { return "Key store removal failed: " + takeError(error); });
    }
    return _fallback.removePassword(username, account) || removed;
}
