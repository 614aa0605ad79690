#include "app/ZVX11IdleTimeSource.h"

#include <QGuiApplication>
#include <cstdlib>
#include <cstring>

#include "ZVLog.h"

#ifdef NORVO_HAVE_X11
#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>
#endif

struct ZVX11IdleTimeSource::Connection {
#ifdef NORVO_HAVE_X11
    Display* display = nullptr;
    XScreenSaverInfo* info = nullptr;
    ~Connection() {
        if (info) XFree(info);
        if (display) XCloseDisplay(display);
    }
#endif
};

namespace {
// Under Wayland an X server (XWayland) may be there, but it sees only the
// input of X clients, so its idle time would lie.
bool waylandSession() {
    const char* type = std::getenv("XDG_SESSION_TYPE");
    return (type && std::strcmp(type, "wayland") == 0) ||
           QGuiApplication::platformName() == QStringLiteral("wayland");
}
}  // namespace

ZVX11IdleTimeSource::ZVX11IdleTimeSource() {
#ifdef NORVO_HAVE_X11
    if (waylandSession()) {
        ZVLog([] { return std::string("Idle time is not available on Wayland"); });
        return;
    }
    Display* display = XOpenDisplay(nullptr);
    if (!display) return;
    int eventBase = 0;
    int errorBase = 0;
    if (!XScreenSaverQueryExtension(display, &eventBase, &errorBase)) {
        XCloseDisplay(display);
        ZVLog([] { return std::string("The X server has no screen saver extension; idle time is off"); });
        return;
    }
    _connection = std::make_unique<Connection>();
    _connection->display = display;
    _connection->info = XScreenSaverAllocInfo();
#endif
}

ZVX11IdleTimeSource::~ZVX11IdleTimeSource() = default;

bool ZVX11IdleTimeSource::isAvailable() const { return _connection != nullptr; }

std::optional<double> ZVX11IdleTimeSource::secondsSinceLastInput() {
#ifdef NORVO_HAVE_X11
    if (!_connection || !_connection->info) return std::nullopt;
    Display* display = _connection->display;
    if (!XScreenSaverQueryInfo(display, DefaultRootWindow(display), _connection->info)) return std::nullopt;
    return static_cast<double>(_connection->info->idle) / 1000.0;
#else
    return std::nullopt;
#endif
}
