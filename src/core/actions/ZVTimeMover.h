#pragma once

#include <memory>
#include <optional>
#include <string>

#include "core/actions/ZVTimeAction.h"

class ZVIntegrationProject;

/// Moves or copies an amount of time between the current project and
/// another one. The dialog tells it the project and the amount; a copy
/// creates time, a move takes it from the source. No log entry records
/// either.
class ZVTimeMover {
public:
    using ProjectPointer = std::shared_ptr<ZVIntegrationProject>;

    ZVTimeMover(ZVTimeAction action, ZVTimeActionDirection direction);

    /// Runs the dialog, then transfers what it confirmed.
    void changeTime();

    ZVTimeAction action() const { return _action; }
    ZVTimeActionDirection direction() const { return _direction; }
    /// The localized "Copy" or "Move".
    std::string confirmButtonTitle() const;

    const ProjectPointer& selectedProject() const { return _selectedProject; }
    void selectProject(const ProjectPointer& project) { _selectedProject = project; }
    /// The first item of the project pop-up: the chosen project's name, or
    /// "No Project Selected" when none or the current project is chosen.
    std::string projectPopUpTitle() const;
    /// All the time of the source, split for the three pop-ups; nothing
    /// when there is no source.
    std::optional<ZVHoursMinutesSeconds> selectAllTime() const;

    /// The dialog ended with the confirm button and this amount.
    void confirm(const ZVHoursMinutesSeconds& amount) { _amount = amount; }
    /// The dialog ended with the cancel button.
    void cancel() { _selectedProject = nullptr; }

    ProjectPointer sourceProject() const;
    ProjectPointer destinationProject() const;

private:
    /// Steps after the dialog: the checks, with their alerts, and the transfer.
    void _transfer();

    ZVTimeAction _action;
    ZVTimeActionDirection _direction;
    ProjectPointer _selectedProject;
    ZVHoursMinutesSeconds _amount;
};
