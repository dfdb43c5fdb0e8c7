#include "menubar/hot_key_center.h"

#include "platform/linux/gui/portal_hot_key_backend.h"
#include "platform/linux/gui/x11_hot_key_backend.h"

#include <QGuiApplication>

namespace pulsebar {

namespace {

bool onX11()
{
    return QGuiApplication::platformName() == QLatin1String("xcb");
}

bool onWaylandWithPortal()
{
    return QGuiApplication::platformName().startsWith(QLatin1String("wayland")) && PortalHotKeyBackend::isAvailable();
}

} // namespace

// X11 grabs keys itself; on Wayland only the desktop portal can, and only where the desktop offers it.
bool desktopGrabsHotKeys()
{
    return onX11() || onWaylandWithPortal();
}

std::unique_ptr<HotKeyBackend> desktopHotKeyBackend()
{
    if (onX11())
        if (auto x11 = X11HotKeyBackend::create())
            return x11;
    if (onWaylandWithPortal())
        return std::make_unique<PortalHotKeyBackend>();
    return nullptr;
}

} // namespace pulsebar
