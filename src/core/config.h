#pragma once

#include "core/enum_names.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace pulsebar {

enum class ModuleKind { combined, cpu, gpu, memory, disks, network, sensors, battery, weather, astronomy, time };
enum class DisplayStyle { text, graph, graphAndText, icon, iconAndText };
enum class TempUnit { celsius, fahrenheit, kelvin };
enum class WindUnit { kmh, mph, ms, knots };
enum class SensorMode { simple, detailed };
enum class ClockLabel { city, abbreviation };
enum class OverviewItem { insight, cpu, gpu, memory, network, disk, sensors, battery, devices, keepAwake, weather,
                          worldClocks, nextEvent };
enum class AppearanceMode { system, light, dark };
enum class RuleMetric { cpu, gpu, memoryPressure, memoryUsed, diskUsed, temperature, batteryLevel, download, upload,
                        ping };
enum class RuleComparison { above, below };

template <> struct EnumNames<ModuleKind> {
    static constexpr std::array<std::string_view, 11> names{
        "combined", "cpu", "gpu", "memory", "disks", "network", "sensors", "battery", "weather", "astronomy", "time"};
};
template <> struct EnumNames<DisplayStyle> {
    static constexpr std::array<std::string_view, 5> names{"text", "graph", "graphAndText", "icon", "iconAndText"};
};
template <> struct EnumNames<TempUnit> {
    static constexpr std::array<std::string_view, 3> names{"celsius", "fahrenheit", "kelvin"};
};
template <> struct EnumNames<WindUnit> {
    static constexpr std::array<std::string_view, 4> names{"kmh", "mph", "ms", "knots"};
};
template <> struct EnumNames<SensorMode> {
    static constexpr std::array<std::string_view, 2> names{"simple", "detailed"};
};
template <> struct EnumNames<ClockLabel> {
    static constexpr std::array<std::string_view, 2> names{"city", "abbreviation"};
};
template <> struct EnumNames<OverviewItem> {
    static constexpr std::array<std::string_view, 13> names{
        "insight", "cpu", "gpu", "memory", "network", "disk", "sensors", "battery", "devices", "keepAwake", "weather",
        "worldClocks", "nextEvent"};
};
template <> struct EnumNames<AppearanceMode> {
    static constexpr std::array<std::string_view, 3> names{"system", "light", "dark"};
};
template <> struct EnumNames<RuleMetric> {
    static constexpr std::array<std::string_view, 10> names{
        "cpu", "gpu", "memoryPressure", "memoryUsed", "diskUsed", "temperature", "batteryLevel", "download", "upload",
        "ping"};
};
template <> struct EnumNames<RuleComparison> {
    static constexpr std::array<std::string_view, 2> names{"above", "below"};
};

// Unit conversions that every displayed temperature and wind speed goes through.
QString format(TempUnit unit, std::optional<double> celsius, int decimals);
QString format(WindUnit unit, double kmh);

struct ModuleConfig {
    ModuleKind kind = ModuleKind::cpu;
    bool enabled = true;
    DisplayStyle style = DisplayStyle::text;
    bool operator==(const ModuleConfig&) const = default;
};

struct WeatherLocation {
    QString name;
    double latitude = 0;
    double longitude = 0;
    bool operator==(const WeatherLocation&) const = default;
};

struct HotKey {
    uint32_t keyCode = 0;
    uint32_t modifiers = 0;
    QString label;
    bool operator==(const HotKey&) const = default;
};

struct EventToggles {
    bool powerSource = true;
    bool batteryCharged = true;
    bool wifiChanged = true;
    bool publicIPChanged = true;
    bool internetStatus = true;
    bool primaryInterface = false;
    bool operator==(const EventToggles&) const = default;
};

struct Rule {
    QString id; // a UUID
    bool enabled = true;
    RuleMetric metric = RuleMetric::cpu;
    RuleComparison comparison = RuleComparison::above;
    double threshold = 0;
    double duration = 0; // seconds
    bool operator==(const Rule&) const = default;

    static Rule make(bool enabled, RuleMetric metric, RuleComparison comparison, double threshold, double duration);
};

struct Config {
    double updateInterval = 2.0; // seconds, stored as given; the sampling timer reads samplingPeriodMs()
    std::vector<ModuleConfig> modules = defaultModules();
    bool monochrome = false;
    TempUnit temperatureUnit = TempUnit::celsius;
    WindUnit windUnit = WindUnit::kmh;
    bool bandwidthBits = false;
    SensorMode sensorMode = SensorMode::simple;
    std::optional<QString> menubarSensorKey;
    QString pingHost = QStringLiteral("1.1.1.1");
    bool showNetworkDisks = true;
    bool showRemovableDisks = true;
    std::optional<WeatherLocation> weatherLocation;
    QStringList worldClocks{"America/New_York", "Europe/London", "Asia/Tokyo"};
    QStringList menubarClocks{"America/New_York"};
    ClockLabel clockLabel = ClockLabel::city;
    bool showWeekNumbers = true;
    bool showEvents = true;
    int64_t eventDays = 3;
    QStringList hiddenCalendars;
    bool showDevices = true;
    std::vector<OverviewItem> overviewHidden;
    std::vector<OverviewItem> overviewOrder = defaultOverviewOrder();
    bool keepAwakeDisplay = false;
    bool insightNotifications = false;
    std::map<QString, HotKey> hotKeys;
    EventToggles events;
    std::vector<Rule> rules = defaultRules();

    bool operator==(const Config&) const = default;

    static std::vector<ModuleConfig> defaultModules();
    static std::vector<OverviewItem> defaultOverviewOrder();
    static std::vector<Rule> defaultRules();

    // Lenient: each key decodes on its own; a missing or malformed key keeps its default.
    static Config fromJson(const QJsonObject& object);
    QJsonObject toJson() const;

    std::vector<OverviewItem> overviewItems() const;
    // The sampling timer's period: updateInterval within 0.25 s to 24 h; the default 2 s when it is
    // not a finite positive number, so a hostile value can neither spin the sampler nor overflow it.
    int samplingPeriodMs() const;
    bool showsInOverview(OverviewItem item) const;
    void setShowsInOverview(OverviewItem item, bool on);

    bool isModuleEnabled(ModuleKind kind) const;
};

} // namespace pulsebar
