#pragma once

#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

class ZVIntegration;
class ZVIntegrationProject;
class ZVMenu;

/// The submenu of an item: a menu, or what builds it at the first look
/// inside. A project tree's menus are built this way, so that opening a menu
/// of a large account costs only the level that is shown. Copies share the
/// built menu. Reads like a pointer to the menu.
class ZVSubmenu {
public:
    using Builder = std::function<std::shared_ptr<ZVMenu>()>;

    ZVSubmenu() = default;
    ZVSubmenu(std::nullptr_t) {}
    ZVSubmenu(std::shared_ptr<ZVMenu> menu) {
        if (menu) _state = std::make_shared<State>(State{{}, std::move(menu)});
    }
    /// A submenu that the builder makes when it is first looked into.
    static ZVSubmenu lazy(Builder builder) {
        ZVSubmenu submenu;
        submenu._state = std::make_shared<State>(State{std::move(builder), nullptr});
        return submenu;
    }

    /// Whether there is a submenu; does not build it.
    explicit operator bool() const { return _state != nullptr; }
    /// Whether it has been built (or was given built).
    bool isBuilt() const { return _state && _state->menu; }
    /// The menu, built now if it has not been yet.
    const std::shared_ptr<ZVMenu>& menu() const {
        static const std::shared_ptr<ZVMenu> none;
        if (!_state) return none;
        if (!_state->menu && _state->builder) {
            _state->menu = _state->builder();
            _state->builder = nullptr;
        }
        return _state->menu;
    }
    ZVMenu* operator->() const { return menu().get(); }
    ZVMenu& operator*() const { return *menu(); }
    friend bool operator==(const ZVSubmenu& submenu, std::nullptr_t) { return !submenu; }

private:
    struct State {
        Builder builder;
        std::shared_ptr<ZVMenu> menu;
    };
    std::shared_ptr<State> _state;
};

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
    ZVSubmenu submenu;

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
