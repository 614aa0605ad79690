#include "ZVApplicationState.h"

#include <mutex>
#include <sys/utsname.h>

namespace {
std::mutex providerMutex;
std::shared_ptr<ZVBasicApplicationStateProvider>& installedProvider() {
    static std::shared_ptr<ZVBasicApplicationStateProvider> provider;
    return provider;
}

std::string operatingSystemDescription() {
    utsname name{};
    if (uname(&name) != 0) return "unknown";
    return std::string(name.sysname) + " " + name.release + " (" + name.machine + ")";
}
}  // namespace

std::vector<ZVApplicationStateItem> ZVBasicApplicationStateProvider::stateItems() const {
    std::vector<ZVApplicationStateItem> items;
    std::string application = _applicationName.empty() ? std::string("unknown") : _applicationName;
    if (!_applicationVersion.empty()) application += " " + _applicationVersion;
    items.push_back({"Application", application, false});
    items.push_back({"Operating System", operatingSystemDescription(), false});
    if (_preferencesSource) {
        std::string lines;
        for (const auto& [key, value] : _preferencesSource()) {
            if (!lines.empty()) lines += "\n";
            lines += "\t" + key + " = " + value.description();
        }
        items.push_back({"Preferences", lines, true});
    }
    return items;
}

std::string ZVBasicApplicationStateProvider::stateReport() const { return reportText(stateItems()); }

std::string ZVBasicApplicationStateProvider::reportText(const std::vector<ZVApplicationStateItem>& items) {
    std::string text;
    for (const auto& item : items) {
        text += item.name + ":";
        text += item.value.find('\n') == std::string::npos ? " " : "\n";
        text += item.value + "\n";
        if (item.requiresAdditionalTrailingNewLine) text += "\n";
    }
    return text;
}

void ZVApplicationSetup::setApplicationStateProvider(std::shared_ptr<ZVBasicApplicationStateProvider> provider) {
    std::lock_guard guard(providerMutex);
    installedProvider() = std::move(provider);
}

std::shared_ptr<ZVBasicApplicationStateProvider> ZVApplicationSetup::applicationStateProvider() {
    std::lock_guard guard(providerMutex);
    if (!installedProvider()) installedProvider() = std::make_shared<ZVBasicApplicationStateProvider>();
    return installedProvider();
}
