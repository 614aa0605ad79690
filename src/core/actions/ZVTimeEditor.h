#pragma once

#include <cstdint>
#include <memory>

#include "core/actions/ZVTimeAction.h"

class ZVIntegrationProject;

/// Sets the time of a project by hand, as hours, minutes and seconds. The
/// fields start from the clock; the result goes to the clock, to the
/// project, and into its log as a time-set entry, even when unchanged.
class ZVTimeEditor {
public:
    explicit ZVTimeEditor(std::shared_ptr<ZVIntegrationProject> project);

    const std::shared_ptr<ZVIntegrationProject>& project() const { return _project; }

    /// Fills the fields from the clock and runs the dialog. The timer keeps
    /// running meanwhile; the fields do not follow it.
    void editTime();
    /// The fields as the dialog shows them at first.
    const ZVHoursMinutesSeconds& fields() const { return _fields; }

    /// The dialog's done button with the fields' values, cut off to whole
    /// numbers; any field may exceed its usual range (90 minutes is 90
    /// minutes). A value below 0 is a programming error.
    void done(double hours, double minutes, double seconds);

    /// The arrow keys of a field: Up adds 1 without limit, Down subtracts 1
    /// but stays at 0.
    static std::uint64_t valueAfterUpKey(std::uint64_t value) { return value + 1; }
    static std::uint64_t valueAfterDownKey(std::uint64_t value) { return value > 0 ? value - 1 : 0; }

private:
    std::shared_ptr<ZVIntegrationProject> _project;
    ZVHoursMinutesSeconds _fields;
};
