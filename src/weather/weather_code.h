#pragma once

#include <QString>

namespace pulsebar::WeatherCode {

// The WMO weather interpretation code in words and as a symbol name; any code not in the table
// (including everything above 99) reads "Unknown" with a plain cloud.
QString description(int code);
QString symbol(int code, bool isDay);

} // namespace pulsebar::WeatherCode
