#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "ZVXML.h"

class ZVIntegrationProject;

/// The texts that services put into a posted time entry.
class ZVPostingText {
public:
    /// The text of the project's last run of the timer (empty when there is
    /// none), with every "%@" replaced by the tracked time as a clock
    /// string: this is how a user puts the time into a description.
    static std::string title(const ZVIntegrationProject& project);
    /// The same with `timeText` in place of every "%@" (a service's own form of the hours).
    static std::string title(const ZVIntegrationProject& project, const std::string& timeText);
    /// A number in its plain decimal text: the shortest digits that read
    /// back as the same number, with ".0" on whole numbers ("1.5", "1.0").
    static std::string decimalText(double value);

    /// A small XML document: the root element with one text element per
    /// member, in the given order, after an XML declaration.
    static std::string xmlRecord(const std::string& root,
                                 const std::vector<std::pair<std::string, std::string>>& members);

    // The forms of tracked time and of dates that services take.

    /// Hours with exactly `places` decimal places, rounded ("1.50" for 5400 s and 2).
    static std::string decimalHours(std::uint64_t seconds, int places);
    /// Whole minutes, rounded to the nearest (29 s are 0, 30 s are 1).
    static std::uint64_t wholeMinutes(std::uint64_t seconds);

    /// How a date-time names its zone.
    enum class Zone {
        /// Local time, the offset as "+0100".
        compactOffset,
        /// Local time, the offset as "+01:00".
        colonOffset,
        /// UTC, closed by "Z".
        utc,
    };
    /// "2026-11-25", the local date of the moment (or the UTC one).
    static std::string date(std::time_t moment, bool inUTC = false);
    /// "2026-11-25T14:03:00+0100", "...+01:00" or "2026-11-25T13:03:00Z".
    static std::string dateTime(std::time_t moment, Zone zone);

    // Whether a service took the post, for services that answer 200 either way.

    /// Throws the posting error unless the reply has a value at the key path.
    static void requireValue(const nlohmann::json& reply, std::string_view keyPath);
    /// Throws the posting error unless the reply has a node at the XPath.
    static void requireNode(const ZVXMLDocument& reply, const std::string& xpath);
    /// A node's id that a service takes as a number; the posting error when
    /// the node has none or it is no whole number (a node of the wrong level).
    static std::int64_t numericID(const std::optional<std::string>& id);
};
