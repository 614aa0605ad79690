#pragma once

#include <functional>
#include <memory>

class QMenu;
class ZVMenu;

/// Turns the domain's menu model into a QMenu. Each action keeps its model
/// item alive and runs the item's handler when triggered. Submenus are
/// filled when they first open, so that a large tree costs nothing until
/// the user goes there. An item that the model marks as an Option-key
/// alternate is shown as a visible entry of its own right after its primary.
class ZVMenuRenderer {
public:
    using MenuProvider = std::function<std::shared_ptr<ZVMenu>()>;

    /// Replaces the menu's content with the model.
    static void fill(QMenu& menu, const std::shared_ptr<ZVMenu>& model);
    /// Rebuilds the menu from the provider every time it is about to open.
    static void rebuildOnOpening(QMenu& menu, MenuProvider provider);
};
