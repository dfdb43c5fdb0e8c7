#pragma once

#include "core/config.h"
#include "weather/weather_report.h"

#include <QString>
#include <QTimeZone>

#include <optional>
#include <vector>

namespace pulsebar {

// A label and its value, as a panel lists them ("Humidity", "87%").
struct InfoRow {
    QString label;
    QString value;
    bool operator==(const InfoRow&) const = default;
};

// What the weather panel shows, as finished texts, so the panel widget, the overview tile and the
// dump draw the same thing and tests read it without a screen.
struct WeatherPanelView {
    enum class State { report, loading, pending, waitingForLocation, unavailable };
    State state = State::pending;
    QString title;   // the place, or "Weather" before one is known
    QString message; // the state's heading when there is no report
    QString detail;  // the line under it: what to do, or the error

    // With a report:
    QString symbol;
    QString temperature;
    QString description;
    std::vector<InfoRow> conditions;
    struct Day {
        QString weekday, symbol, high, low, chance, amount;
        bool operator==(const Day&) const = default;
    };
    std::vector<Day> days;
    std::vector<InfoRow> sun; // today's sunrise and sunset
    QString age;              // "Updated 12m ago"
    QString staleError;       // the last refresh failed; the report shown is older

    static QString footer();
};

struct WeatherPanelInput {
    const WeatherReport* report = nullptr;
    std::optional<QString> lastError;
    bool isLoading = false;
    bool hasLocation = false;
    TempUnit temperatureUnit = TempUnit::celsius;
    WindUnit windUnit = WindUnit::kmh;
    double now = 0;
    QTimeZone displayZone = QTimeZone::systemTimeZone();
};

// The overview's weather tile: symbol, temperature, conditions and place, or the state's heading.
struct WeatherTileView {
    QString symbol; // "cloud" without a report
    QString value;  // "11°", or "—"
    QString caption; // "Partly Cloudy · Berlin", or "Loading weather…" and the like
    bool operator==(const WeatherTileView&) const = default;
};

namespace WeatherPanelContent {

WeatherPanelView view(const WeatherPanelInput& input);
WeatherTileView tile(const WeatherPanelInput& input);
// N, NNE, NE, … for a direction in degrees.
QString compass(double degrees);

} // namespace WeatherPanelContent

} // namespace pulsebar
