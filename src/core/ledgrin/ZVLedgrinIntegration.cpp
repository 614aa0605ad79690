#include "core/ledgrin/ZVLedgrinIntegration.h"

#include <array>
#include <charconv>
#include <utility>
#include <vector>

#include "ZVHelpers.h"
#include "ZVLog.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"

namespace {
constexpr const char* timeEntryURLPrefix = "ledgrin://timeentry?";
constexpr double secondsPerHour = 3600;

/// The shortest text that reads back as the same number: 1.5, 0, 42.
std::string numberText(double value) {
    std::array<char, 64> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return std::string(buffer.data(), result.ptr);
}

std::optional<int> versionPart(std::string_view part) {
    int value = 0;
    const auto result = std::from_chars(part.data(), part.data() + part.size(), value);
    if (result.ec != std::errc() || result.ptr == part.data()) return std::nullopt;
    return value;
}
}  // namespace

ZVLedgrinIntegration& ZVLedgrinIntegration::sharedIntegration() {
    static ZVLedgrinIntegration integration;
    return integration;
}

void ZVLedgrinIntegration::setEnvironment(std::shared_ptr<Environment> environment) {
    std::lock_guard guard(_mutex);
    _environment = std::move(environment);
    _isInstalledVersionIntegrable.reset();
}

std::shared_ptr<ZVLedgrinIntegration::Environment> ZVLedgrinIntegration::environment() {
    std::lock_guard guard(_mutex);
    return _environment;
}

bool ZVLedgrinIntegration::isInstalled() {
    const auto environment = this->environment();
    return environment && environment->isInstalled();
}

bool ZVLedgrinIntegration::isInstalledVersionIntegrable() {
    {
        std::lock_guard guard(_mutex);
        if (_isInstalledVersionIntegrable) return *_isInstalledVersionIntegrable;
    }
    const auto environment = this->environment();
    bool integrable = false;
    if (environment && environment->isInstalled()) {
        const auto version = environment->installedVersion();
        integrable = version && isVersionIntegrable(*version);
    }
    std::lock_guard guard(_mutex);
    if (!_isInstalledVersionIntegrable) _isInstalledVersionIntegrable = integrable;
    return *_isInstalledVersionIntegrable;
}

bool ZVLedgrinIntegration::isVersionIntegrable(std::string_view version) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    while (true) {
        const size_t dot = version.find('.', start);
        parts.push_back(version.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start));
        if (dot == std::string_view::npos) break;
        start = dot + 1;
    }
    if (parts.size() < 2) return false;
    std::array<int, 3> numbers{0, 0, 0};
    for (size_t i = 0; i < 3 && i < parts.size(); ++i) numbers[i] = versionPart(parts[i]).value_or(0);
    return numbers[0] >= 2 && numbers[1] >= 2 && numbers[2] >= 2;
}

ZVLedgrinIntegration::TimeEntry ZVLedgrinIntegration::timeEntry(const ZVIntegrationProject& project,
                                                                std::optional<double> hourPrice) {
    TimeEntry entry;
    entry.hourPrice = hourPrice.value_or(0);
    if (const auto last = project.lastTimeLogEntry()) entry.notes = last->text();
    entry.time = static_cast<double>(project.time()) / secondsPerHour;
    return entry;
}

std::string ZVLedgrinIntegration::invoiceItemURL(const TimeEntry& entry) {
    return timeEntryURLPrefix + ZVURLQueryString({{"time", numberText(entry.time)},
                                                  {"price", numberText(entry.hourPrice)},
                                                  {"note", entry.notes}});
}

void ZVLedgrinIntegration::addInvoiceItem(const TimeEntry& entry) { _sendURLToLedgrin(invoiceItemURL(entry)); }

void ZVLedgrinIntegration::_sendURLToLedgrin(const std::string& url) {
    const auto environment = this->environment();
    if (!environment || !environment->openURL(url))
        ZVLog([&] { return "Could not hand " + url + " to " + ZVLedgrinBundleIdentifier; });
}
