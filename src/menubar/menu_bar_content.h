#pragma once

#include "core/config.h"
#include "monitors/memory_monitor.h"
#include "menubar/menu_bar_part.h"

#include <QString>

#include <optional>
#include <vector>

namespace pulsebar {

class Hub;

// The live values the menu-bar items show, copied out of the hub's monitors once per redraw, so that
// what an item shows is a pure function of plain numbers (and sample states can be drawn without a
// machine behind them).
struct MenuBarReadings {
    double now = 0; // seconds since 1970

    double cpuUser = 0;   // percent
    double cpuSystem = 0; // percent
    std::vector<double> cpuHistory; // user + system percent, oldest first

    bool hasGPU = false;
    double gpuUtilization = 0; // percent
    std::vector<double> gpuHistory;

    double memoryPressure = 0; // percent
    MemoryPressureLevel memoryPressureLevel = MemoryPressureLevel::normal;
    double memoryUsed = 0; // percent

    std::optional<double> startupDiskUsed; // percent; absent without a startup volume

    std::optional<bool> internetReachable;
    double upload = 0;   // bytes per second
    double download = 0; // bytes per second
    std::vector<double> uploadHistory;
    std::vector<double> downloadHistory;

    std::optional<double> temperature; // °C, the hub's menu-bar temperature
    std::optional<double> fanRpm;      // the fastest fan
    bool sensorsReady = false; // sensor discovery has finished: a missing temperature stays missing

    bool hasBattery = false;
    double batteryPercent = 0;
    bool batteryCharging = false;

    struct Weather {
        QString symbol; // for the current code, by day or night
        double temperature = 0; // °C
        QString description{};  // "Partly Cloudy", for the tooltip
    };
    std::optional<Weather> weather; // absent before the first report

    struct SunEvent {
        bool isSunrise = true;
        double time = 0; // seconds since 1970
    };
    std::optional<SunEvent> nextSunEvent; // absent with no sun event ahead

    static MenuBarReadings from(const Hub& hub);
};

// What each module's item shows, as parts for MenuBarRenderer.
namespace MenuBarContent {

inline const QString percentTemplate = QStringLiteral("100%");
inline const QString uploadArrow = QStringLiteral("↑");
inline const QString downloadArrow = QStringLiteral("↓");

MenuBarParts parts(const ModuleConfig& module, const Hub& hub, const Config& config);
MenuBarParts parts(const ModuleConfig& module, const MenuBarReadings& readings, const Config& config);

// Every part of the module, before the display style picks among them.
MenuBarParts allParts(ModuleKind kind, const MenuBarReadings& readings, const Config& config);

// text: the text parts; graph: the graphic; graphAndText: both; icon: the symbol or glyph; iconAndText:
// the symbol and the text. A style that would leave the item empty shows its text instead (then its icon),
// so an item never vanishes because its module lacks one kind of part. The battery glyph is both the
// battery's icon and its graphic.
MenuBarParts select(const MenuBarParts& parts, DisplayStyle style);

// The colour of the memory-pressure gauge: green, yellow, red by level.
PartColor pressureColor(MemoryPressureLevel level);

// "CPU", "Memory", …: how the module is named to the user.
QString title(ModuleKind kind);
// The module's texts, one per line (a stacked part gives two).
QStringList lines(ModuleKind kind, const MenuBarReadings& readings, const Config& config);
// Why the module's value can never come on this computer ("No temperature sensors found on this
// computer"); nullopt while it has one or may still get one.
std::optional<QString> unavailableReason(ModuleKind kind, const MenuBarReadings& readings);
// The body of the item's tooltip: its values one per line, or why there are none.
QString toolTip(ModuleKind kind, const MenuBarReadings& readings, const Config& config);

// How a clock is named in the menu bar: the city of its zone, or the zone's abbreviation at `now`.
QString clockLabel(const QString& zoneId, ClockLabel label, double now);

} // namespace MenuBarContent

} // namespace pulsebar
