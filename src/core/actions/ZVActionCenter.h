#pragma once

#include <memory>
#include <string>

#include "core/actions/ZVTimeAction.h"

class ZVIntegration;
class ZVIntegrationProject;

/// The operations that a menu, a hot key and a window all reach: resetting
/// and toggling the timer, posting, rounding, moving and editing time, the
/// current task text, and the banner of a newly chosen project. Stateless;
/// everything runs on the main thread.
class ZVActionCenter {
public:
    using ProjectPointer = std::shared_ptr<ZVIntegrationProject>;

    static ZVActionCenter& shared();

    /// Connects the heart beat's automatic posting, the banner of a new
    /// current project and the accounts' "Post All Times" to this centre.
    /// The application calls it once at launch.
    void installHandlers();

    /// A short banner with the project's path; nothing before the
    /// application has a user interface.
    void showSystemNotification(const ProjectPointer& project);
    /// Asks, then sets the current project's time to zero and logs the reset.
    void resetTimer();
    /// Stops the timer and runs the rounding dialog for the project.
    void roundTime(const ProjectPointer& project);
    void postAllTimes();
    void postAllTimes(ZVIntegration& integration);

    /// Joins the current task text to the log of the current project: while
    /// the timer runs it is the title of the open run; otherwise it becomes
    /// the title of the last run, or of a new run that accounts for all time
    /// tracked so far.
    void timeEntryTextHasChanged(const std::string& taskText);
    /// The post command: joins the task text first; beeps without a current
    /// project or with a local one.
    void postTime(const std::string& taskText);
    /// Stops the timer when it runs, starts it otherwise.
    void toggleTimer();
    /// The rounding command: for the current project, or a beep.
    void showTimeRounding();
    /// The editing command: for the current project, or nothing.
    void showTimeEditing();
    /// The action menu's move and copy items.
    void changeTime(ZVTimeAction action, ZVTimeActionDirection direction);

private:
    ZVActionCenter() = default;
};
