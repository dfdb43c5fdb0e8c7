#pragma once

#include "sky/astronomy_panel_content.h"
#include "weather/weather_panel_content.h"

#include <QImage>

namespace pulsebar::PanelImages {

// The weather and astronomy panels' content drawn as a plain card, for the diagnostics dump.
QImage weather(const WeatherPanelView& view, bool dark, double devicePixelRatio);
QImage astronomy(const AstronomyPanelView& view, bool dark, double devicePixelRatio);

} // namespace pulsebar::PanelImages
