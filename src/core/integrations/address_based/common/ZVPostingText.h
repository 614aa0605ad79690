#pragma once

#include <string>

class ZVIntegrationProject;

/// The texts that services put into a posted time entry.
class ZVPostingText {
public:
    /// The text of the project's last run of the timer (empty when there is
    /// none), with every "%@" replaced by the tracked time as a clock
    /// string: this is how a user puts the time into a description.
    static std::string title(const ZVIntegrationProject& project);
    /// A number in its plain decimal text: the shortest digits that read
    /// back as the same number, with ".0" on whole numbers ("1.5", "1.0").
    static std::string decimalText(double value);
};
