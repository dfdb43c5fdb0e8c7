#include "weather/weather_code.h"

namespace pulsebar::WeatherCode {

namespace {

struct Entry {
    const char* description;
    const char* day;
    const char* night;
};

Entry entry(int code)
{
    switch (code) {
    case 0: return {"Clear", "sun.max.fill", "moon.stars.fill"};
    case 1: return {"Mostly Clear", "cloud.sun.fill", "cloud.moon.fill"};
    case 2: return {"Partly Cloudy", "cloud.sun.fill", "cloud.moon.fill"};
    case 3: return {"Overcast", "cloud.fill", "cloud.fill"};
    case 45:
    case 48: return {"Fog", "cloud.fog.fill", "cloud.fog.fill"};
    case 51:
    case 53:
    case 55: return {"Drizzle", "cloud.drizzle.fill", "cloud.drizzle.fill"};
    case 56:
    case 57: return {"Freezing Drizzle", "cloud.sleet.fill", "cloud.sleet.fill"};
    case 61: return {"Light Rain", "cloud.rain.fill", "cloud.rain.fill"};
    case 63: return {"Rain", "cloud.rain.fill", "cloud.rain.fill"};
    case 65: return {"Heavy Rain", "cloud.heavyrain.fill", "cloud.heavyrain.fill"};
    case 66:
    case 67: return {"Freezing Rain", "cloud.sleet.fill", "cloud.sleet.fill"};
    case 71: return {"Light Snow", "cloud.snow.fill", "cloud.snow.fill"};
    case 73: return {"Snow", "cloud.snow.fill", "cloud.snow.fill"};
    case 75: return {"Heavy Snow", "cloud.snow.fill", "cloud.snow.fill"};
    case 77: return {"Snow Grains", "cloud.snow.fill", "cloud.snow.fill"};
    case 80:
    case 81: return {"Rain Showers", "cloud.sun.rain.fill", "cloud.moon.rain.fill"};
    case 82: return {"Heavy Showers", "cloud.heavyrain.fill", "cloud.heavyrain.fill"};
    case 85:
    case 86: return {"Snow Showers", "cloud.snow.fill", "cloud.snow.fill"};
    case 95: return {"Thunderstorm", "cloud.bolt.rain.fill", "cloud.bolt.rain.fill"};
    case 96:
    case 99: return {"Thunderstorm with Hail", "cloud.bolt.rain.fill", "cloud.bolt.rain.fill"};
    default: return {"Unknown", "cloud.fill", "cloud.fill"};
    }
}

} // namespace

QString description(int code) { return QString::fromLatin1(entry(code).description); }

QString symbol(int code, bool isDay)
{
    const Entry e = entry(code);
    return QString::fromLatin1(isDay ? e.day : e.night);
}

} // namespace pulsebar::WeatherCode
