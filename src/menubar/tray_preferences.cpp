#include "menubar/tray_preferences.h"

namespace pulsebar {

TrayPreferences TrayPreferences::load(const Preferences& preferences)
{
    TrayPreferences out;
    out.panel = enumFromName<TrayPanel>(preferences.value(panelKey).toString()).value_or(TrayPanel::automatic);
    out.valueInIcon = enumFromName<TrayValueInIcon>(preferences.value(valueInIconKey).toString())
                          .value_or(TrayValueInIcon::automatic);
    return out;
}

void TrayPreferences::setPanel(Preferences& preferences, TrayPanel panel)
{
    preferences.setValue(panelKey, enumName(panel));
}

void TrayPreferences::setValueInIcon(Preferences& preferences, TrayValueInIcon valueInIcon)
{
    preferences.setValue(valueInIconKey, enumName(valueInIcon));
}

} // namespace pulsebar
