#include "app/ZVGlobalHotKeys.h"

#include <QGuiApplication>
#include <QSocketNotifier>
#include <cstdlib>
#include <cstring>

#include "ZVLog.h"
#include "ui_elements/ZVQtLocalization.h"

#ifdef NORVO_HAVE_X11
#include <X11/Xlib.h>
#include <X11/keysym.h>
#endif

struct ZVGlobalHotKeys::Connection {
#ifdef NORVO_HAVE_X11
    Display* display = nullptr;
    Window root = 0;
    ~Connection() {
        if (display) XCloseDisplay(display);
    }
#endif
};

#ifdef NORVO_HAVE_X11
namespace {

// Lock modifiers that must not change whether a hot key fires.
constexpr unsigned lockVariants[] = {0, LockMask, Mod2Mask, LockMask | Mod2Mask};
constexpr unsigned comparedModifiers = ShiftMask | ControlMask | Mod1Mask | Mod4Mask;

KeySym keysymForQtKey(int key) {
    if (key >= Qt::Key_A && key <= Qt::Key_Z) return static_cast<KeySym>(key - Qt::Key_A + XK_a);
    if (key >= 0x20 && key <= 0xff) return static_cast<KeySym>(key);  // Latin-1 keys share their codes
    if (key >= Qt::Key_F1 && key <= Qt::Key_F35) return static_cast<KeySym>(XK_F1 + (key - Qt::Key_F1));
    switch (key) {
        case Qt::Key_Escape: return XK_Escape;
        case Qt::Key_Tab: return XK_Tab;
        case Qt::Key_Backspace: return XK_BackSpace;
        case Qt::Key_Return: return XK_Return;
        case Qt::Key_Enter: return XK_KP_Enter;
        case Qt::Key_Insert: return XK_Insert;
        case Qt::Key_Delete: return XK_Delete;
        case Qt::Key_Pause: return XK_Pause;
        case Qt::Key_Print: return XK_Print;
        case Qt::Key_Home: return XK_Home;
        case Qt::Key_End: return XK_End;
        case Qt::Key_Left: return XK_Left;
        case Qt::Key_Up: return XK_Up;
        case Qt::Key_Right: return XK_Right;
        case Qt::Key_Down: return XK_Down;
        case Qt::Key_PageUp: return XK_Page_Up;
        case Qt::Key_PageDown: return XK_Page_Down;
        default: return NoSymbol;
    }
}

unsigned x11Modifiers(Qt::KeyboardModifiers modifiers) {
    unsigned mask = 0;
    if (modifiers & Qt::ShiftModifier) mask |= ShiftMask;
    if (modifiers & Qt::ControlModifier) mask |= ControlMask;
    if (modifiers & Qt::AltModifier) mask |= Mod1Mask;
    if (modifiers & Qt::MetaModifier) mask |= Mod4Mask;
    return mask;
}

bool grabFailed = false;
int recordGrabError(Display*, XErrorEvent* error) {
    if (error->error_code == BadAccess) grabFailed = true;
    return 0;
}

}  // namespace
#endif

ZVGlobalHotKeys::ZVGlobalHotKeys(QObject* parent) : QObject(parent) {
#ifdef NORVO_HAVE_X11
    const char* session = std::getenv("XDG_SESSION_TYPE");
    if ((session && std::strcmp(session, "wayland") == 0) ||
        QGuiApplication::platformName() == QStringLiteral("wayland")) {
        _unavailableReason = ZVLocalizedQString("Global shortcuts are not available on Wayland.");
        return;
    }
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        _unavailableReason = ZVLocalizedQString("Global shortcuts need an X server.");
        return;
    }
    _connection = std::make_unique<Connection>();
    _connection->display = display;
    _connection->root = DefaultRootWindow(display);
    _notifier = new QSocketNotifier(ConnectionNumber(display), QSocketNotifier::Read, this);
    connect(_notifier, &QSocketNotifier::activated, this, &ZVGlobalHotKeys::_readEvents);
#else
    _unavailableReason = ZVLocalizedQString("Global shortcuts are not available in this build.");
#endif
}

ZVGlobalHotKeys::~ZVGlobalHotKeys() {
    while (!_registrations.empty()) unregisterHotKey(_registrations.begin()->first);
}

bool ZVGlobalHotKeys::isAvailable() const { return _connection != nullptr; }

int ZVGlobalHotKeys::registerHotKey(const ZVKeyCombo& combo, std::function<void()> handler) {
#ifdef NORVO_HAVE_X11
    if (!_connection) return -1;
    Display* display = _connection->display;
    const KeySym keysym = keysymForQtKey(combo.keyCode);
    if (keysym == NoSymbol) return -2;
    const KeyCode keycode = XKeysymToKeycode(display, keysym);
    if (keycode == 0) return -2;
    const unsigned modifiers = x11Modifiers(combo.modifierFlags);

    grabFailed = false;
    XErrorHandler previous = XSetErrorHandler(recordGrabError);
    for (unsigned variant : lockVariants)
        XGrabKey(display, keycode, modifiers | variant, _connection->root, False, GrabModeAsync, GrabModeAsync);
    XSync(display, False);
    XSetErrorHandler(previous);
    if (grabFailed) {
        for (unsigned variant : lockVariants) XUngrabKey(display, keycode, modifiers | variant, _connection->root);
        XFlush(display);
        return -3;
    }
    const int identifier = _nextIdentifier++;
    _registrations[identifier] = Registration{keycode, modifiers, std::move(handler)};
    return identifier;
#else
    (void)combo;
    (void)handler;
    return -1;
#endif
}

void ZVGlobalHotKeys::unregisterHotKey(int identifier) {
    auto it = _registrations.find(identifier);
    if (it == _registrations.end()) return;
#ifdef NORVO_HAVE_X11
    if (_connection) {
        for (unsigned variant : lockVariants)
            XUngrabKey(_connection->display, it->second.keycode, it->second.modifiers | variant, _connection->root);
        XFlush(_connection->display);
    }
#endif
    _registrations.erase(it);
}

bool ZVGlobalHotKeys::dispatch(unsigned keycode, unsigned modifierState) {
#ifdef NORVO_HAVE_X11
    const unsigned pressed = modifierState & comparedModifiers;
#else
    const unsigned pressed = modifierState;
#endif
    for (auto& [identifier, registration] : _registrations) {
        if (registration.keycode == keycode && registration.modifiers == pressed) {
            // Copied: the handler may unregister itself.
            std::function<void()> handler = registration.handler;
            if (handler) handler();
            return true;
        }
    }
    return false;
}

void ZVGlobalHotKeys::_readEvents() {
#ifdef NORVO_HAVE_X11
    if (!_connection) return;
    Display* display = _connection->display;
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type == KeyPress) dispatch(event.xkey.keycode, event.xkey.state);
    }
#endif
}
