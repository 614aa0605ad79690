#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

class ZVIntegrationProject;

/// The identifier of the sibling accounting application.
inline constexpr const char* ZVLedgrinBundleIdentifier = "com.ostrand.Ledgrin-2";

/// The bridge to Ledgrin, the maker's accounting application: it hands the
/// time of a project over as an invoice item, through a
/// "ledgrin://timeentry?" URL. Ledgrin is no account: no login, no tree.
class ZVLedgrinIntegration {
public:
    /// One invoice item.
    struct TimeEntry {
        double hourPrice = 0;
        std::string notes;
        /// In hours.
        double time = 0;
    };

    /// What the desktop knows of the installed application; the shell
    /// supplies it. Without one, Ledgrin counts as not installed.
    class Environment {
    public:
        virtual ~Environment() = default;
        /// Whether an application handles the "ledgrin" URL scheme.
        virtual bool isInstalled() = 0;
        /// The installed application's version ("2.3.4"), when it states one.
        virtual std::optional<std::string> installedVersion() = 0;
        /// Hands the URL to the desktop's URL opener.
        virtual bool openURL(const std::string& url) = 0;
    };

    static ZVLedgrinIntegration& sharedIntegration();

    /// Installs the environment and forgets the answer of the version test.
    void setEnvironment(std::shared_ptr<Environment> environment);

    bool isInstalled();
    /// The version test, made at the first call and kept for the life of the
    /// process: an update of Ledgrin during a run is not seen.
    bool isInstalledVersionIntegrable();
    /// Whether "Send Time to Ledgrin 2…" is offered.
    bool canReceiveTime() { return isInstalled() && isInstalledVersionIntegrable(); }

    /// Part by part, not an ordering: each of the first three parts must be
    /// at least 2, so "2.3.4" passes and "3.0.0" fails; fewer than two parts fail.
    static bool isVersionIntegrable(std::string_view version);

    /// The project's time in hours, the text of its last time log entry (or
    /// empty) and the hour price (0 when none is set).
    static TimeEntry timeEntry(const ZVIntegrationProject& project, std::optional<double> hourPrice);
    /// "ledgrin://timeentry?time=…&price=…&note=…", values percent-encoded.
    static std::string invoiceItemURL(const TimeEntry& entry);

    /// Sends the entry. The project's time is not changed and nothing marks
    /// it as sent: sending twice makes two items.
    void addInvoiceItem(const TimeEntry& entry);
    /// A failure is logged; the user sees nothing.
    void _sendURLToLedgrin(const std::string& url);

private:
    std::mutex _mutex;
    std::shared_ptr<Environment> _environment;
    std::optional<bool> _isInstalledVersionIntegrable;

    std::shared_ptr<Environment> environment();
};
