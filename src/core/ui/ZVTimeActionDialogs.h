#pragma once

class ZVTimeMover;
class ZVTimeRounder;
class ZVTimeEditor;

/// The three modal dialogs of the time actions. The shell draws them; each
/// call returns when the dialog has ended. A dialog reports what the user
/// does to the logic object it is given, which decides everything else.
class ZVTimeActionDialogs {
public:
    virtual ~ZVTimeActionDialogs() = default;

    /// Move or copy: pop-ups of hours 0-99, minutes and seconds 0-59, a
    /// project pop-up titled mover.projectPopUpTitle() whose choice goes to
    /// mover.selectProject(), an all-time button that selects
    /// mover.selectAllTime(), and a confirm button titled
    /// mover.confirmButtonTitle() that calls mover.confirm(); the cancel
    /// button calls mover.cancel().
    virtual void runTimeMover(ZVTimeMover& mover) = 0;
    /// Rounding of rounder.project(): a direction pop-up (nearest, up,
    /// down) and a duration pop-up (rounder.durations()). Done calls
    /// rounder.roundTime(directionPosition, durationPosition) and ends the
    /// dialog only when that answers true; cancel ends it and changes nothing.
    virtual void runTimeRounding(ZVTimeRounder& rounder) = 0;
    /// Editing: three fields filled from editor.fields(), which take any
    /// number not below 0; done calls editor.done() and ends the dialog.
    virtual void runTimeEditor(ZVTimeEditor& editor) = 0;

    /// The installed dialogs (not owned); a fatal error while none is installed.
    static ZVTimeActionDialogs& shared();
    static void install(ZVTimeActionDialogs* dialogs);
};
