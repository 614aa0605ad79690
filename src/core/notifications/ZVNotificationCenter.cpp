#include "core/notifications/ZVNotificationCenter.h"

#include <algorithm>

ZVNotificationCenter& ZVNotificationCenter::shared() {
    static ZVNotificationCenter center;
    return center;
}

ZVNotificationCenter::Token ZVNotificationCenter::addObserver(const std::string& name, Observer observer) {
    std::lock_guard<std::mutex> guard(_mutex);
    auto registration = std::make_shared<Registration>();
    registration->token = ++_lastToken;
    registration->name = name;
    registration->observer = std::move(observer);
    _registrations.push_back(registration);
    return registration->token;
}

void ZVNotificationCenter::removeObserver(Token token) {
    std::lock_guard<std::mutex> guard(_mutex);
    auto found = std::find_if(_registrations.begin(), _registrations.end(),
                              [token](const auto& registration) { return registration->token == token; });
    if (found == _registrations.end()) return;
    (*found)->removed = true;
    _registrations.erase(found);
}

void ZVNotificationCenter::post(const ZVNotification& notification) {
    // Observers run outside the mutex so that they may post and observe in turn.
    std::vector<std::shared_ptr<Registration>> matching;
    {
        std::lock_guard<std::mutex> guard(_mutex);
        for (const auto& registration : _registrations) {
            if (registration->name == notification.name()) matching.push_back(registration);
        }
    }
    for (const auto& registration : matching) {
        {
            std::lock_guard<std::mutex> guard(_mutex);
            if (registration->removed) continue;
        }
        registration->observer(notification);
    }
}

void ZVNotificationCenter::post(const std::string& name, std::any object) {
    post(ZVNotification(name, std::move(object)));
}

std::size_t ZVNotificationCenter::observerCount(const std::string& name) const {
    std::lock_guard<std::mutex> guard(_mutex);
    return static_cast<std::size_t>(std::count_if(_registrations.begin(), _registrations.end(),
                                                  [&name](const auto& registration) { return registration->name == name; }));
}
