#include "panels/panel_host.h"

#include <QGuiApplication>

namespace pulsebar {

// Wayland lets no client window place itself or grab the pointer.
bool panelWindowsPlaceThemselves()
{
    return !QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}

} // namespace pulsebar
