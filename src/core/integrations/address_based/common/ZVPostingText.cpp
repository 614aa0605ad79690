#include "core/integrations/address_based/common/ZVPostingText.h"

#include <array>
#include <charconv>
#include <ctime>
#include <sstream>

#include "ZVJSON.h"
#include "ZVTime.h"
#include "core/integrations/ZVIntegrationError.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/log_entries/ZVTimeLogEntry.h"

std::string ZVPostingText::title(const ZVIntegrationProject& project) {
    return title(project, ZVTime::timeString(project.time()));
}

std::string ZVPostingText::title(const ZVIntegrationProject& project, const std::string& clock) {
    const auto entry = project.lastTimeLogEntry();
    std::string text = entry ? entry->text() : std::string();
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

std::string ZVPostingText::xmlRecord(const std::string& root,
                                    const std::vector<std::pair<std::string, std::string>>& members) {
    pugi::xml_document document;
    auto declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    auto record = document.append_child(root.c_str());
    for (const auto& member : members) record.append_child(member.first.c_str()).text().set(member.second.c_str());
    std::ostringstream text;
    document.save(text, "", pugi::format_raw);
    return text.str();
}

std::string ZVPostingText::decimalHours(std::uint64_t seconds, int places) {
    std::array<char, 64> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(),
                                      static_cast<double>(seconds) / 3600.0, std::chars_format::fixed, places);
    return std::string(buffer.data(), result.ptr);
}

std::uint64_t ZVPostingText::wholeMinutes(std::uint64_t seconds) { return (seconds + 30) / 60; }

namespace {
std::tm brokenDown(std::time_t moment, bool inUTC) {
    std::tm parts{};
    if (inUTC)
        gmtime_r(&moment, &parts);
    else
        localtime_r(&moment, &parts);
    return parts;
}

std::string formatted(const std::tm& parts, const char* format) {
    std::array<char, 64> buffer{};
    return std::string(buffer.data(), std::strftime(buffer.data(), buffer.size(), format, &parts));
}
}  // namespace

std::string ZVPostingText::date(std::time_t moment, bool inUTC) {
    return formatted(brokenDown(moment, inUTC), "%Y-%m-%d");
}

std::string ZVPostingText::dateTime(std::time_t moment, Zone zone) {
    const std::tm parts = brokenDown(moment, zone == Zone::utc);
    const std::string clock = formatted(parts, "%Y-%m-%dT%H:%M:%S");
    if (zone == Zone::utc) return clock + "Z";
    std::string offset = formatted(parts, "%z");  // "+0100"
    if (zone == Zone::colonOffset && offset.size() == 5) offset.insert(3, ":");
    return clock + offset;
}

void ZVPostingText::requireValue(const nlohmann::json& reply, std::string_view keyPath) {
    if (!ZVJSON::value(reply, keyPath)) throw ZVIntegrationGenericTimePostingError();
}

void ZVPostingText::requireNode(const ZVXMLDocument& reply, const std::string& xpath) {
    if (reply.nodes(xpath).empty()) throw ZVIntegrationGenericTimePostingError();
}

std::int64_t ZVPostingText::numericID(const std::optional<std::string>& id) {
    std::int64_t number = 0;
    const auto result = id ? std::from_chars(id->data(), id->data() + id->size(), number) : std::from_chars_result{};
    if (!id || id->empty() || result.ec != std::errc() || result.ptr != id->data() + id->size())
        throw ZVIntegrationGenericTimePostingError();
    return number;
}
