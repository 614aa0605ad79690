#include "core/integrations/address_based/common/ZVPostingText.h"

#include <array>
#include <charconv>

#include "ZVTime.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"

std::string ZVPostingText::title(const ZVIntegrationProject& project) {
    const auto entry = project.lastTimeLogEntry();
    std::string text = entry ? entry->text() : std::string();
    const std::string clock = ZVTime::timeString(project.time());
    const std::string placeholder = "%@";
    for (auto at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder, at + clock.size()))
        text.replace(at, placeholder.size(), clock);
    return text;
}

std::string ZVPostingText::decimalText(double value) {
    std::array<char, 64> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    std::string text(buffer.data(), result.ptr);
    if (text.find_first_of(".eEni") == std::string::npos) text += ".0";
    return text;
}
