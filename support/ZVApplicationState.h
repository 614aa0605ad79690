#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ZVValue.h"

/// One named value of the state report.
struct ZVApplicationStateItem {
    std::string name;
    std::string value;
    bool requiresAdditionalTrailingNewLine = false;
};

/// Gathers a plain-text description of the running application for a debug
/// or crash report: the application and its version, the operating system
/// and the preferences. Programs add what only they know by overriding
/// stateItems(). Nothing in the report may be a secret.
class ZVBasicApplicationStateProvider {
public:
    ZVBasicApplicationStateProvider() = default;
    virtual ~ZVBasicApplicationStateProvider() = default;
    ZVBasicApplicationStateProvider(const ZVBasicApplicationStateProvider&) = delete;
    ZVBasicApplicationStateProvider& operator=(const ZVBasicApplicationStateProvider&) = delete;

    /// "Application", "Operating System" and, when a source is set, "Preferences".
    virtual std::vector<ZVApplicationStateItem> stateItems() const;
    /// The items as "name: value" lines; a value of several lines starts on
    /// a line of its own.
    std::string stateReport() const;
    static std::string reportText(const std::vector<ZVApplicationStateItem>& items);

    void setApplicationName(std::string name) { _applicationName = std::move(name); }
    void setApplicationVersion(std::string version) { _applicationVersion = std::move(version); }
    /// The preferences by property name (the program's typed preferences).
    void setPreferencesSource(std::function<ZVDictionary()> source) { _preferencesSource = std::move(source); }

private:
    std::string _applicationName;
    std::string _applicationVersion;
    std::function<ZVDictionary()> _preferencesSource;
};

/// The process-wide pieces that a program installs before anything else runs.
class ZVApplicationSetup {
public:
    static void setApplicationStateProvider(std::shared_ptr<ZVBasicApplicationStateProvider> provider);
    /// The installed provider, or a basic one when none is installed.
    static std::shared_ptr<ZVBasicApplicationStateProvider> applicationStateProvider();
};
