#pragma once

#include <QString>
#include <functional>

/// Short banners through the desktop's notification service
/// (org.freedesktop.Notifications on the session bus). Where no service
/// answers, the fallback shows the banner instead, typically as a balloon of
/// the tray icon.
class ZVDesktopNotifications {
public:
    using Fallback = std::function<void(const QString& title, const QString& text)>;

    void setFallback(Fallback fallback) { _fallback = std::move(fallback); }
    /// Shows the banner; replaces the previous banner of this program.
    void show(const QString& title, const QString& text);

private:
    Fallback _fallback;
    unsigned _lastNotificationID = 0;
};
