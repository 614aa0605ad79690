#pragma once

#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

class ZVIntegration;
class ZVIntegrationProject;
class ZVMenu;

/// One entry of a menu, as the domain builds it and the shell renders it.
/// An item runs its handler when chosen; an item without a handler, or with
/// `enabled` false, shows disabled. `action` names what the handler does
/// ("selectProject:", "synchronize", "_removeAccount:", ...), so that the
/// shell and the tests can tell items apart without running them.
class ZVMenuItem {
public:
    enum class State { off, on };
    using Handler = std::function<void(const ZVMenuItem&)>;
    /// A project or an account carried by the item; the handler reads it.
    using RepresentedObject =
        std::variant<std::monostate, std::shared_ptr<ZVIntegrationProject>, std::shared_ptr<ZVIntegration>>;

    ZVMenuItem() = default;
    explicit ZVMenuItem(std::string itemTitle, std::string itemAction = {}, Handler itemHandler = {})
        : title(std::move(itemTitle)), action(std::move(itemAction)), handler(std::move(itemHandler)) {}

    static std::shared_ptr<ZVMenuItem> separator() {
        auto item = std::make_shared<ZVMenuItem>();
        item->isSeparator = true;
        item->enabled = false;
        return item;
    }

    /// Localized title. For a leaf project the shell draws the part from
    /// `secondaryTitleStart` (a byte offset) to the end in a dimmed colour.
    std::string title;
    std::size_t secondaryTitleStart = std::string::npos;
    std::string toolTip;
    std::string action;
    Handler handler;
    bool enabled = true;
    State state = State::off;
    bool isSeparator = false;
    /// Shown instead of the item before it while the Option (Alt) key is held.
    bool isAlternate = false;
    RepresentedObject representedObject;
    /// The account of a project item (set on items that act on a project of an account).
    std::shared_ptr<ZVIntegration> integration;
    std::shared_ptr<ZVMenu> submenu;

    bool isEnabled() const { return enabled && !isSeparator && (handler || submenu); }
    /// Runs the handler of an enabled item; does nothing otherwise.
    void perform() const {
        if (enabled && handler) handler(*this);
    }
    std::shared_ptr<ZVIntegrationProject> representedProject() const {
        auto* p = std::get_if<std::shared_ptr<ZVIntegrationProject>>(&representedObject);
        return p ? *p : nullptr;
    }
    std::shared_ptr<ZVIntegration> representedIntegration() const {
        auto* p = std::get_if<std::shared_ptr<ZVIntegration>>(&representedObject);
        return p ? *p : nullptr;
    }
};

/// A menu: an ordered list of items, built anew at each opening.
class ZVMenu {
public:
    ZVMenu() = default;
    explicit ZVMenu(std::string menuTitle) : title(std::move(menuTitle)) {}

    std::string title;
    std::vector<std::shared_ptr<ZVMenuItem>> items;

    ZVMenuItem& addItem(std::shared_ptr<ZVMenuItem> item) {
        items.push_back(std::move(item));
        return *items.back();
    }
    ZVMenuItem& addItem(std::string itemTitle, std::string action = {}, ZVMenuItem::Handler handler = {}) {
        return addItem(std::make_shared<ZVMenuItem>(std::move(itemTitle), std::move(action), std::move(handler)));
    }
    void addSeparator() { items.push_back(ZVMenuItem::separator()); }
    bool empty() const { return items.empty(); }
    std::size_t size() const { return items.size(); }

    /// The first item with that title, or nullptr.
    ZVMenuItem* itemWithTitle(const std::string& itemTitle) const {
        for (const auto& item : items)
            if (item->title == itemTitle) return item.get();
        return nullptr;
    }
};

/// What receives the choice of a project from a project menu (the project
/// picker, the timer window, the time mover, the project selection alert),
/// and the other actions that project menus send to their target.
class ZVIntegrationProjectMenuItemTarget {
public:
    virtual ~ZVIntegrationProjectMenuItemTarget() = default;
    /// The item's represented object is the chosen project.
    virtual void selectProject(const ZVMenuItem& item) = 0;
    /// "_editAccount:" (represented object: the account) and
    /// "manageNorvoProjects:"; whether this target answers the action.
    virtual bool respondsToMenuAction(const std::string& action) const {
        (void)action;
        return false;
    }
    virtual void performMenuAction(const std::string& action, const ZVMenuItem& item) {
        (void)action;
        (void)item;
    }
};
