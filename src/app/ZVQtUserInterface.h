#pragma once

#include <QString>
#include <QObject>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "app/ZVDesktopNotifications.h"
#include "core/ui/ZVUserInterface.h"

class QWidget;

/// The domain's alerts, banners, beeps and links on Qt: alerts are message
/// boxes that keep the buttons in the order given, the first one being the
/// default; a button titled "Cancel" answers Escape, and so does the only
/// button of a one-button alert.
class ZVQtUserInterface final : public ZVUserInterface {
public:
    /// Starts following the desktop's network state (NetworkManager through
    /// Qt), where the desktop offers one.
    ZVQtUserInterface();

    ZVAlertResponse runModal(const ZVAlert& alert) override;
    std::optional<std::string> runModalWithTextField(const ZVAlert& alert, const std::string& initialText,
                                                     bool secure) override;
    std::optional<std::size_t> runModalWithChoice(const ZVAlert& alert, const std::vector<std::string>& choices,
                                                  std::size_t preselected) override;
    void showAlert(const ZVAlert& alert) override;
    void beep() override;
    void showBanner(const std::string& title, const std::string& text) override;
    bool openURL(const std::string& url) override;
    /// Only a desktop that knows of no network at all counts: a local or
    /// site-only network still reaches an intranet server.
    bool desktopIsOffline() const override { return _offline.load(); }

    ZVDesktopNotifications& notifications() { return _notifications; }
    /// The window that alerts are centred on, or none for the screen.
    void setParentWindow(QWidget* window) { _parentWindow = window; }

    /// How long an alert that ignores key presses at first takes none.
    static constexpr int keyGuardMilliseconds = 1500;

    /// The index of the button that Escape presses, or -1 when Escape does nothing.
    static int escapeButtonIndex(const std::vector<std::string>& buttons);

private:
    ZVDesktopNotifications _notifications;
    QWidget* _parentWindow = nullptr;
    std::atomic<bool> _offline{false};
    // Ends the following of the network state with this object.
    std::unique_ptr<QObject> _networkWatch;
};

inline QString ZVQt(const std::string& text) { return QString::fromStdString(text); }
