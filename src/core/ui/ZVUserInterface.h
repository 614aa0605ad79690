#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// A modal alert as the domain asks for it; the shell draws it. Texts are
/// already localized. Buttons are listed left to right in reading order of
/// the platform's alert: the first is the default (Return), a button titled
/// like "Cancel" answers Escape.
struct ZVAlert {
    enum class Style { informational, warning, critical };
    std::string messageText;
    std::string informativeText;
    std::vector<std::string> buttons;  // empty means one "OK"
    Style style = Style::warning;
    /// An optional check box under the text ("Do not show this message again").
    std::optional<std::string> suppressionButtonTitle;
    /// Keys count only after the alert has been up for a moment, so that a
    /// key press meant for something else cannot answer the question.
    bool ignoresKeyPressesAtFirst = false;
};

/// The answer to an alert: which button (0 = first), and the check box state.
struct ZVAlertResponse {
    int buttonIndex = 0;
    bool suppressionChecked = false;
};

/// Everything the domain needs a person to see or answer. The shell
/// implements it on Qt; tests script it. All calls come on the main thread
/// unless said otherwise; runModal blocks until the user answers.
class ZVUserInterface {
public:
    virtual ~ZVUserInterface() = default;

    virtual ZVAlertResponse runModal(const ZVAlert& alert) = 0;
    /// A modal warning that only tells: its message, the details below it
    /// and the one button "OK".
    void runModalMessage(const std::string& message, const std::string& informative = {});
    /// An alert with one input field; nothing when cancelled.
    virtual std::optional<std::string> runModalWithTextField(const ZVAlert& alert, const std::string& initialText,
                                                             bool secure) = 0;
    /// An alert with a pop-up of `choices` under its texts, `preselected`
    /// chosen at first; the chosen index, nothing when cancelled.
    virtual std::optional<std::size_t> runModalWithChoice(const ZVAlert& alert, const std::vector<std::string>& choices,
                                                          std::size_t preselected) = 0;
    /// An alert that asks nothing and blocks nothing: it stays up until the
    /// user closes it while the program goes on.
    virtual void showAlert(const ZVAlert& alert) { showBanner(alert.messageText, alert.informativeText); }
    /// The system's short warning sound.
    virtual void beep() = 0;
    /// A desktop notification (banner) with a title and a text.
    virtual void showBanner(const std::string& title, const std::string& text) = 0;
    /// Opens a URL with the desktop's handler. Returns false when nothing handles it.
    virtual bool openURL(const std::string& url) = 0;
    /// Brings the application to the front, ignoring other applications.
    virtual void activateApplication() {}
    /// Whether the desktop knows the computer to have no network at all.
    /// May be asked on any thread.
    virtual bool desktopIsOffline() const { return false; }

    static ZVUserInterface& shared();
    /// Installs the interface (not owned). Until then a fatal error is raised on use.
    static void install(ZVUserInterface* ui);
    /// The installed interface, or nullptr while the application has none yet.
    static ZVUserInterface* sharedIfInstalled();

    /// Runs an alert modally on the main thread from any thread and gives the answer.
    static ZVAlertResponse runModalOnMainThread(const ZVAlert& alert);
};
