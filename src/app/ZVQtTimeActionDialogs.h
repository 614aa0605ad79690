#pragma once

#include "core/ui/ZVTimeActionDialogs.h"

class QWidget;

/// The move/copy, rounding and editing dialogs of the time actions as
/// modal Qt dialogs. Each one hands what the user does to its logic object.
class ZVQtTimeActionDialogs final : public ZVTimeActionDialogs {
public:
    void runTimeMover(ZVTimeMover& mover) override;
    void runTimeRounding(ZVTimeRounder& rounder) override;
    void runTimeEditor(ZVTimeEditor& editor) override;

    void setParentWindow(QWidget* window) { _parentWindow = window; }

private:
    QWidget* _parentWindow = nullptr;
};
