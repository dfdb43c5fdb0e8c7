#include "core/config.h"

#include "core/fmt.h"

#include <QJsonArray>
#include <QUuid>

#include <algorithm>
#include <cmath>

namespace pulsebar {

namespace {

// Each decoder answers nullopt when the value is not of the field's type; the caller keeps the default.
std::optional<double> decodeDouble(const QJsonValue& v)
{
    if (!v.isDouble())
        return std::nullopt;
    return v.toDouble();
}

std::optional<bool> decodeBool(const QJsonValue& v)
{
    if (!v.isBool())
        return std::nullopt;
    return v.toBool();
}

std::optional<QString> decodeString(const QJsonValue& v)
{
    if (!v.isString())
        return std::nullopt;
    return v.toString();
}

// Integers must be whole numbers inside the target's range; 2.5 is not an integer.
template <typename Int>
std::optional<Int> decodeInteger(const QJsonValue& v)
{
    if (!v.isDouble())
        return std::nullopt;
    const double d = v.toDouble();
    if (!std::isfinite(d) || std::trunc(d) != d || d < double(std::numeric_limits<Int>::min()) ||
        d > double(std::numeric_limits<Int>::max()))
        return std::nullopt;
    return static_cast<Int>(d);
}

template <typename E>
std::optional<E> decodeEnum(const QJsonValue& v)
{
    if (!v.isString())
        return std::nullopt;
    return enumFromName<E>(v.toString());
}

// Lists decode all-or-nothing: one bad element rejects the whole list.
template <typename T, typename F>
std::optional<std::vector<T>> decodeList(const QJsonValue& v, F decodeElement)
{
    if (!v.isArray())
        return std::nullopt;
    std::vector<T> out;
    for (const QJsonValue& element : v.toArray()) {
        std::optional<T> decoded = decodeElement(element);
        if (!decoded)
            return std::nullopt;
        out.push_back(std::move(*decoded));
    }
    return out;
}

std::optional<QStringList> decodeStringList(const QJsonValue& v)
{
    auto list = decodeList<QString>(v, decodeString);
    if (!list)
        return std::nullopt;
    return QStringList(list->begin(), list->end());
}

std::optional<ModuleConfig> decodeModule(const QJsonValue& v)
{
    const QJsonObject o = v.toObject();
    auto kind = decodeEnum<ModuleKind>(o.value("kind"));
    auto enabled = decodeBool(o.value("enabled"));
    auto style = decodeEnum<DisplayStyle>(o.value("style"));
    if (!v.isObject() || !kind || !enabled || !style)
        return std::nullopt;
    return ModuleConfig{*kind, *enabled, *style};
}

std::optional<WeatherLocation> decodeLocation(const QJsonValue& v)
{
    const QJsonObject o = v.toObject();
    auto name = decodeString(o.value("name"));
    auto latitude = decodeDouble(o.value("latitude"));
    auto longitude = decodeDouble(o.value("longitude"));
    if (!v.isObject() || !name || !latitude || !longitude)
        return std::nullopt;
    return WeatherLocation{*name, *latitude, *longitude};
}

std::optional<HotKey> decodeHotKey(const QJsonValue& v)
{
    const QJsonObject o = v.toObject();
    auto keyCode = decodeInteger<uint32_t>(o.value("keyCode"));
    auto modifiers = decodeInteger<uint32_t>(o.value("modifiers"));
    auto label = decodeString(o.value("label"));
    if (!v.isObject() || !keyCode || !modifiers || !label)
        return std::nullopt;
    return HotKey{*keyCode, *modifiers, *label};
}

std::optional<std::map<QString, HotKey>> decodeHotKeys(const QJsonValue& v)
{
    if (!v.isObject())
        return std::nullopt;
    std::map<QString, HotKey> out;
    const QJsonObject o = v.toObject();
    for (auto it = o.begin(); it != o.end(); ++it) {
        auto key = decodeHotKey(it.value());
        if (!key)
            return std::nullopt;
        out.emplace(it.key(), *key);
    }
    return out;
}

std::optional<EventToggles> decodeEvents(const QJsonValue& v)
{
    const QJsonObject o = v.toObject();
    EventToggles t;
    const std::pair<const char*, bool*> fields[] = {
        {"powerSource", &t.powerSource},         {"batteryCharged", &t.batteryCharged},
        {"wifiChanged", &t.wifiChanged},         {"publicIPChanged", &t.publicIPChanged},
        {"internetStatus", &t.internetStatus},   {"primaryInterface", &t.primaryInterface}};
    if (!v.isObject())
        return std::nullopt;
    for (const auto& [name, field] : fields) {
        auto value = decodeBool(o.value(QLatin1String(name)));
        if (!value)
            return std::nullopt;
        *field = *value;
    }
    return t;
}

std::optional<Rule> decodeRule(const QJsonValue& v)
{
    const QJsonObject o = v.toObject();
    auto id = decodeString(o.value("id"));
    auto enabled = decodeBool(o.value("enabled"));
    auto metric = decodeEnum<RuleMetric>(o.value("metric"));
    auto comparison = decodeEnum<RuleComparison>(o.value("comparison"));
    auto threshold = decodeDouble(o.value("threshold"));
    auto duration = decodeDouble(o.value("duration"));
    if (!v.isObject() || !id || QUuid::fromString(*id).isNull() || !enabled || !metric || !comparison || !threshold ||
        !duration)
        return std::nullopt;
    return Rule{QUuid::fromString(*id).toString(QUuid::WithoutBraces).toUpper(), *enabled, *metric, *comparison,
                *threshold, *duration};
}

template <typename T, typename F>
void assign(T& field, const QJsonObject& o, const char* key, F decode)
{
    if (auto value = decode(o.value(QLatin1String(key))))
        field = std::move(*value);
}

template <typename E>
QJsonArray enumArray(const std::vector<E>& items)
{
    QJsonArray a;
    for (E item : items)
        a.append(enumName(item));
    return a;
}

QString fixed(double value, int decimals)
{
    return Fmt::number(value, decimals);
}

} // namespace

QString format(TempUnit unit, std::optional<double> celsius, int decimals)
{
    if (!celsius)
        return QStringLiteral("—");
    switch (unit) {
    case TempUnit::celsius: return fixed(*celsius, decimals) + QStringLiteral("°");
    case TempUnit::fahrenheit: return fixed(*celsius * 9.0 / 5.0 + 32.0, decimals) + QStringLiteral("°");
    case TempUnit::kelvin: return fixed(*celsius + 273.15, decimals) + QStringLiteral(" K");
    }
    return {};
}

QString format(WindUnit unit, double kmh)
{
    double value = kmh;
    const char* suffix = "km/h";
    switch (unit) {
    case WindUnit::kmh: break;
    case WindUnit::mph: value = kmh / 1.609344; suffix = "mph"; break;
    case WindUnit::ms: value = kmh / 3.6; suffix = "m/s"; break;
    case WindUnit::knots: value = kmh / 1.852; suffix = "kn"; break;
    }
    return QString::number(std::llround(value)) + QLatin1Char(' ') + QLatin1String(suffix);
}

Rule Rule::make(bool enabled, RuleMetric metric, RuleComparison comparison, double threshold, double duration)
{
    return Rule{QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(), enabled, metric, comparison, threshold,
                duration};
}

std::vector<ModuleConfig> Config::defaultModules()
{
    using K = ModuleKind;
    using S = DisplayStyle;
    return {{K::combined, false, S::text},       {K::cpu, true, S::graphAndText},    {K::gpu, false, S::graphAndText},
            {K::memory, true, S::graphAndText},  {K::disks, true, S::iconAndText},   {K::network, true, S::text},
            {K::sensors, true, S::iconAndText},  {K::battery, true, S::iconAndText}, {K::weather, true, S::iconAndText},
            {K::astronomy, false, S::iconAndText}, {K::time, false, S::text}};
}

std::vector<OverviewItem> Config::defaultOverviewOrder()
{
    const auto cases = allCases<OverviewItem>();
    return {cases.begin(), cases.end()};
}

std::vector<Rule> Config::defaultRules()
{
    using M = RuleMetric;
    using C = RuleComparison;
    return {Rule::make(true, M::cpu, C::above, 90, 60), Rule::make(true, M::memoryPressure, C::above, 80, 30),
            Rule::make(true, M::batteryLevel, C::below, 15, 0), Rule::make(true, M::diskUsed, C::above, 95, 0),
            Rule::make(false, M::temperature, C::above, 95, 30)};
}

Config Config::fromJson(const QJsonObject& o)
{
    Config c;
    assign(c.updateInterval, o, "updateInterval", decodeDouble);
    assign(c.modules, o, "modules", [](const QJsonValue& v) { return decodeList<ModuleConfig>(v, decodeModule); });
    assign(c.monochrome, o, "monochrome", decodeBool);
    assign(c.temperatureUnit, o, "temperatureUnit", decodeEnum<TempUnit>);
    assign(c.windUnit, o, "windUnit", decodeEnum<WindUnit>);
    assign(c.bandwidthBits, o, "bandwidthBits", decodeBool);
    assign(c.sensorMode, o, "sensorMode", decodeEnum<SensorMode>);
    if (auto key = decodeString(o.value("menubarSensorKey")))
        c.menubarSensorKey = *key;
    assign(c.pingHost, o, "pingHost", decodeString);
    assign(c.showNetworkDisks, o, "showNetworkDisks", decodeBool);
    assign(c.showRemovableDisks, o, "showRemovableDisks", decodeBool);
    if (auto location = decodeLocation(o.value("weatherLocation")))
        c.weatherLocation = *location;
    assign(c.worldClocks, o, "worldClocks", decodeStringList);
    assign(c.menubarClocks, o, "menubarClocks", decodeStringList);
    assign(c.clockLabel, o, "clockLabel", decodeEnum<ClockLabel>);
    assign(c.showWeekNumbers, o, "showWeekNumbers", decodeBool);
    assign(c.showEvents, o, "showEvents", decodeBool);
    assign(c.eventDays, o, "eventDays", decodeInteger<int64_t>);
    assign(c.hiddenCalendars, o, "hiddenCalendars", decodeStringList);
    assign(c.showDevices, o, "showDevices", decodeBool);
    const auto overviewList = [](const QJsonValue& v) { return decodeList<OverviewItem>(v, decodeEnum<OverviewItem>); };
    assign(c.overviewHidden, o, "overviewHidden", overviewList);
    assign(c.overviewOrder, o, "overviewOrder", overviewList);
    assign(c.keepAwakeDisplay, o, "keepAwakeDisplay", decodeBool);
    assign(c.insightNotifications, o, "insightNotifications", decodeBool);
    assign(c.hotKeys, o, "hotKeys", decodeHotKeys);
    assign(c.events, o, "events", decodeEvents);
    assign(c.rules, o, "rules", [](const QJsonValue& v) { return decodeList<Rule>(v, decodeRule); });
    return c;
}

QJsonObject Config::toJson() const
{
    QJsonObject o;
    o["updateInterval"] = updateInterval;
    QJsonArray moduleArray;
    for (const ModuleConfig& m : modules)
        moduleArray.append(QJsonObject{{"kind", enumName(m.kind)}, {"enabled", m.enabled}, {"style", enumName(m.style)}});
    o["modules"] = moduleArray;
    o["monochrome"] = monochrome;
    o["temperatureUnit"] = enumName(temperatureUnit);
    o["windUnit"] = enumName(windUnit);
    o["bandwidthBits"] = bandwidthBits;
    o["sensorMode"] = enumName(sensorMode);
    if (menubarSensorKey)
        o["menubarSensorKey"] = *menubarSensorKey;
    o["pingHost"] = pingHost;
    o["showNetworkDisks"] = showNetworkDisks;
    o["showRemovableDisks"] = showRemovableDisks;
    if (weatherLocation)
        o["weatherLocation"] = QJsonObject{{"name", weatherLocation->name},
                                           {"latitude", weatherLocation->latitude},
                                           {"longitude", weatherLocation->longitude}};
    o["worldClocks"] = QJsonArray::fromStringList(worldClocks);
    o["menubarClocks"] = QJsonArray::fromStringList(menubarClocks);
    o["clockLabel"] = enumName(clockLabel);
    o["showWeekNumbers"] = showWeekNumbers;
    o["showEvents"] = showEvents;
    o["eventDays"] = qint64(eventDays);
    o["hiddenCalendars"] = QJsonArray::fromStringList(hiddenCalendars);
    o["showDevices"] = showDevices;
    o["overviewHidden"] = enumArray(overviewHidden);
    o["overviewOrder"] = enumArray(overviewOrder);
    o["keepAwakeDisplay"] = keepAwakeDisplay;
    o["insightNotifications"] = insightNotifications;
    QJsonObject keys;
    for (const auto& [action, key] : hotKeys)
        keys[action] = QJsonObject{{"keyCode", qint64(key.keyCode)}, {"modifiers", qint64(key.modifiers)},
                                   {"label", key.label}};
    o["hotKeys"] = keys;
    o["events"] = QJsonObject{{"powerSource", events.powerSource},       {"batteryCharged", events.batteryCharged},
                              {"wifiChanged", events.wifiChanged},       {"publicIPChanged", events.publicIPChanged},
                              {"internetStatus", events.internetStatus}, {"primaryInterface", events.primaryInterface}};
    QJsonArray ruleArray;
    for (const Rule& r : rules)
        ruleArray.append(QJsonObject{{"id", r.id},
                                     {"enabled", r.enabled},
                                     {"metric", enumName(r.metric)},
                                     {"comparison", enumName(r.comparison)},
                                     {"threshold", r.threshold},
                                     {"duration", r.duration}});
    o["rules"] = ruleArray;
    return o;
}

std::vector<OverviewItem> Config::overviewItems() const
{
    std::vector<OverviewItem> items;
    auto seen = [&](OverviewItem item) { return std::find(items.begin(), items.end(), item) != items.end(); };
    for (OverviewItem item : overviewOrder)
        if (!seen(item))
            items.push_back(item);
    for (OverviewItem item : allCases<OverviewItem>())
        if (!seen(item))
            items.push_back(item);
    return items;
}

int Config::samplingPeriodMs() const
{
    constexpr double shortest = 0.25, longest = 24 * 3600.0, fallback = 2.0;
    const double seconds = std::isfinite(updateInterval) && updateInterval > 0 ? updateInterval : fallback;
    return int(std::lround(std::clamp(seconds, shortest, longest) * 1000.0));
}

bool Config::showsInOverview(OverviewItem item) const
{
    if (item == OverviewItem::devices)
        return showDevices;
    return std::find(overviewHidden.begin(), overviewHidden.end(), item) == overviewHidden.end();
}

void Config::setShowsInOverview(OverviewItem item, bool on)
{
    if (item == OverviewItem::devices) {
        showDevices = on;
        return;
    }
    if (on)
        std::erase(overviewHidden, item);
    else if (showsInOverview(item))
        overviewHidden.push_back(item);
}

bool Config::isModuleEnabled(ModuleKind kind) const
{
    return std::any_of(modules.begin(), modules.end(),
                       [kind](const ModuleConfig& m) { return m.kind == kind && m.enabled; });
}

} // namespace pulsebar
