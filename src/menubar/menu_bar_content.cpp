#include "menubar/menu_bar_content.h"

#include "calendar/world_clock.h"
#include "core/fmt.h"
#include "hub/hub.h"

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

#include <algorithm>

namespace pulsebar::MenuBarContent {

namespace {

constexpr std::size_t graphValues = 20;
constexpr double idleNetworkScale = 1024; // bytes/s: a quieter link never fills the graph

std::vector<double> fractions(const std::vector<double>& percents)
{
    std::vector<double> out;
    out.reserve(percents.size());
    for (double p : percents)
        out.push_back(p / 100.0);
    return out;
}

std::vector<double> lastValues(const std::vector<double>& values)
{
    const std::size_t n = std::min(values.size(), graphValues);
    return std::vector<double>(values.end() - std::ptrdiff_t(n), values.end());
}

// Upload and download share one scale, the busiest of the values on screen, so the two halves compare.
std::pair<std::vector<double>, std::vector<double>> networkFractions(const HubSnapshot& r)
{
    std::vector<double> up = lastValues(r.uploadHistory), down = lastValues(r.downloadHistory);
    double peak = idleNetworkScale;
    for (double v : up)
        peak = std::max(peak, v);
    for (double v : down)
        peak = std::max(peak, v);
    for (double& v : up)
        v /= peak;
    for (double& v : down)
        v /= peak;
    return {up, down};
}

QString temperatureTemplate(TempUnit unit)
{
    return unit == TempUnit::kelvin ? QStringLiteral("373 K") : QStringLiteral("100°");
}

QString rateTemplate(bool bits)
{
    return bits ? QStringLiteral(" 999 Mb/s") : QStringLiteral(" 1023 MB/s");
}

QString timeText(double seconds)
{
    return Fmt::time(QDateTime::fromMSecsSinceEpoch(qint64(seconds * 1000.0), Qt::UTC),
                     QTimeZone::systemTimeZone());
}

// The widest time the locale writes, so clock items do not change width over the day.
QString timeTemplate()
{
    return Fmt::time(QDateTime(QDate(2000, 1, 1), QTime(22, 58), QTimeZone::utc()), QTimeZone::utc());
}

QString diskUsedText(const std::optional<LiveVolume>& startup)
{
    const std::optional<double> used = startup ? startup->usedPercent() : std::nullopt;
    return used ? Fmt::percent(*used) : QStringLiteral("—");
}

QString temperature(const Config& config, std::optional<double> celsius)
{
    return Fmt::temperature(config.temperatureUnit, celsius, 0);
}

MenuBarParts combined(const HubSnapshot& r, const Config& config)
{
    return {MenuBarPart::makeAppGlyph(),
            MenuBarPart::makeGraph(fractions(r.cpuHistory), PartColor::blue),
            MenuBarPart::makeBar(r.memoryPressure / 100.0,
                                 r.memoryPressureLevel == MemoryPressureLevel::normal ? PartColor::green : PartColor::yellow),
            MenuBarPart::makeStacked(QStringLiteral("CPU ") + Fmt::percent(r.cpuUser + r.cpuSystem),
                                     QStringLiteral("MEM ") + Fmt::percent(r.memoryUsed), QStringLiteral("CPU 100%")),
            MenuBarPart::makeStacked(temperature(config, r.menubarTemperature),
                                     downloadArrow + Fmt::rate(r.download, config.bandwidthBits),
                                     downloadArrow + rateTemplate(config.bandwidthBits))};
}

MenuBarParts network(const HubSnapshot& r, const Config& config)
{
    const bool offline = r.internetReachable == false;
    auto [up, down] = networkFractions(r);
    const QString widest = rateTemplate(config.bandwidthBits);
    return {MenuBarPart::makeSymbol(offline ? QStringLiteral("network.slash") : QStringLiteral("network")),
            MenuBarPart::makeMirrored(std::move(up), std::move(down)),
            MenuBarPart::makeStacked(uploadArrow + QLatin1Char(' ') + Fmt::rate(r.upload, config.bandwidthBits),
                                     downloadArrow + QLatin1Char(' ') + Fmt::rate(r.download, config.bandwidthBits),
                                     uploadArrow + widest)};
}

MenuBarParts sensors(const HubSnapshot& r, const Config& config)
{
    MenuBarParts out{MenuBarPart::makeSymbol(QStringLiteral("thermometer.medium"))};
    const QString temp = temperature(config, r.menubarTemperature);
    if (r.fastestFanRpm)
        out.push_back(MenuBarPart::makeStacked(temp, Fmt::number(*r.fastestFanRpm, 0) + QStringLiteral(" rpm"),
                                               QStringLiteral("9999 rpm")));
    else
        out.push_back(MenuBarPart::makeText(temp, temperatureTemplate(config.temperatureUnit)));
    return out;
}

MenuBarParts weather(const HubSnapshot& r, const Config& config)
{
    if (!r.weather)
        return {MenuBarPart::makeSymbol(QStringLiteral("cloud")), MenuBarPart::makeText(QStringLiteral("—"), {})};
    const QString widest =
        config.temperatureUnit == TempUnit::kelvin ? QStringLiteral("373 K") : QStringLiteral("-10°");
    return {MenuBarPart::makeSymbol(r.weather->symbol, true),
            MenuBarPart::makeText(temperature(config, r.weather->temperature), widest)};
}

MenuBarParts astronomy(const HubSnapshot& r)
{
    if (!r.nextSunEvent)
        return {MenuBarPart::makeSymbol(QStringLiteral("sun.horizon")), MenuBarPart::makeText(QStringLiteral("—"), {})};
    return {MenuBarPart::makeSymbol(r.nextSunEvent->isSunrise ? QStringLiteral("sunrise.fill")
                                                              : QStringLiteral("sunset.fill")),
            MenuBarPart::makeText(timeText(r.nextSunEvent->time), timeTemplate())};
}

MenuBarParts clocks(const HubSnapshot& r, const Config& config)
{
    MenuBarParts out{MenuBarPart::makeSymbol(QStringLiteral("globe"))};
    const QDateTime at = QDateTime::fromMSecsSinceEpoch(qint64(r.time * 1000.0), QTimeZone::utc());
    for (const WorldClock::Clock& clock : WorldClock::clocks(config.menubarClocks))
        out.push_back(MenuBarPart::makeStacked(WorldClock::label(clock.id, config.clockLabel, at),
                                               Fmt::time(at, clock.zone), timeTemplate()));
    return out;
}

} // namespace

PartColor pressureColor(MemoryPressureLevel level)
{
    switch (level) {
    case MemoryPressureLevel::normal: return PartColor::green;
    case MemoryPressureLevel::warning: return PartColor::yellow;
    case MemoryPressureLevel::critical: return PartColor::red;
    }
    return PartColor::green;
}

QString title(ModuleKind kind)
{
    switch (kind) {
    case ModuleKind::combined: return QStringLiteral("Pulsebar");
    case ModuleKind::cpu: return QStringLiteral("CPU");
    case ModuleKind::gpu: return QStringLiteral("GPU");
    case ModuleKind::memory: return QStringLiteral("Memory");
    case ModuleKind::disks: return QStringLiteral("Disk");
    case ModuleKind::network: return QStringLiteral("Network");
    case ModuleKind::sensors: return QStringLiteral("Temperature");
    case ModuleKind::battery: return QStringLiteral("Battery");
    case ModuleKind::weather: return QStringLiteral("Weather");
    case ModuleKind::astronomy: return QStringLiteral("Sun");
    case ModuleKind::time: return QStringLiteral("World Clock");
    }
    return {};
}

MenuBarParts allParts(ModuleKind kind, const HubSnapshot& r, const Config& config)
{
    switch (kind) {
    case ModuleKind::combined: return combined(r, config);
    case ModuleKind::cpu:
        return {MenuBarPart::makeSymbol(QStringLiteral("cpu")),
                MenuBarPart::makeGraph(fractions(r.cpuHistory), PartColor::blue),
                MenuBarPart::makeText(Fmt::percent(r.cpuUser + r.cpuSystem), percentTemplate)};
    case ModuleKind::gpu:
        if (!r.gpuUtilization)
            return {};
        return {MenuBarPart::makeSymbol(QStringLiteral("display")),
                MenuBarPart::makeGraph(fractions(r.gpuHistory), PartColor::purple),
                MenuBarPart::makeText(Fmt::percent(*r.gpuUtilization), percentTemplate)};
    case ModuleKind::memory:
        return {MenuBarPart::makeSymbol(QStringLiteral("memorychip")),
                MenuBarPart::makeBar(r.memoryPressure / 100.0, pressureColor(r.memoryPressureLevel)),
                MenuBarPart::makeText(Fmt::percent(r.memoryUsed), percentTemplate)};
    case ModuleKind::disks:
        return {MenuBarPart::makeSymbol(QStringLiteral("internaldrive")),
                MenuBarPart::makeText(diskUsedText(r.startupVolume),
                                      percentTemplate)};
    case ModuleKind::network: return network(r, config);
    case ModuleKind::sensors: return sensors(r, config);
    case ModuleKind::battery:
        if (!r.batteryPresent)
            return {MenuBarPart::makeBattery(0, false), MenuBarPart::makeText(QStringLiteral("—"), percentTemplate)};
        return {MenuBarPart::makeBattery(r.batteryPercent / 100.0, r.batteryCharging),
                MenuBarPart::makeText(Fmt::percent(r.batteryPercent), percentTemplate)};
    case ModuleKind::weather: return weather(r, config);
    case ModuleKind::astronomy: return astronomy(r);
    case ModuleKind::time: return clocks(r, config);
    }
    return {};
}

MenuBarParts select(const MenuBarParts& parts, DisplayStyle style)
{
    const auto isGraphic = [](const MenuBarPart& p) { return p.isGraphic() || p.kind == MenuBarPart::Kind::battery; };
    const auto keep = [&](auto predicate) {
        MenuBarParts out;
        std::copy_if(parts.begin(), parts.end(), std::back_inserter(out), predicate);
        return out;
    };
    MenuBarParts chosen;
    switch (style) {
    case DisplayStyle::text: chosen = keep([](const MenuBarPart& p) { return p.isText(); }); break;
    case DisplayStyle::graph: chosen = keep(isGraphic); break;
    case DisplayStyle::graphAndText:
        chosen = keep([&](const MenuBarPart& p) { return isGraphic(p) || p.isText(); });
        break;
    case DisplayStyle::icon: chosen = keep([](const MenuBarPart& p) { return p.isIcon(); }); break;
    case DisplayStyle::iconAndText:
        chosen = keep([](const MenuBarPart& p) { return p.isIcon() || p.isText(); });
        break;
    }
    if (chosen.empty())
        chosen = keep([](const MenuBarPart& p) { return p.isText(); });
    if (chosen.empty())
        chosen = keep([](const MenuBarPart& p) { return p.isIcon(); });
    return chosen;
}

MenuBarParts parts(const ModuleConfig& module, const HubSnapshot& readings, const Config& config)
{
    const MenuBarParts all = allParts(module.kind, readings, config);
    MenuBarParts chosen = select(all, module.style);
    // Offline must not look like idle: a style without the symbol still shows the crossed-out one.
    const bool offline = module.kind == ModuleKind::network && readings.internetReachable == false;
    if (offline && std::none_of(chosen.begin(), chosen.end(), [](const MenuBarPart& p) { return p.isIcon(); }))
        chosen.insert(chosen.begin(), all.front());
    return chosen;
}

MenuBarParts parts(const ModuleConfig& module, const Hub& hub, const Config& config)
{
    return parts(module, HubSnapshot::of(hub), config);
}

QStringList lines(ModuleKind kind, const HubSnapshot& readings, const Config& config)
{
    QStringList out;
    for (const MenuBarPart& part : allParts(kind, readings, config)) {
        if (part.kind == MenuBarPart::Kind::text)
            out << part.text;
        else if (part.kind == MenuBarPart::Kind::stacked)
            out << part.text << part.bottom;
    }
    return out;
}

std::optional<QString> unavailableReason(ModuleKind kind, const HubSnapshot& r)
{
    switch (kind) {
    case ModuleKind::gpu:
        if (!r.gpuUtilization)
            return QStringLiteral("No graphics processor found on this computer");
        break;
    case ModuleKind::disks:
        if (!r.startupVolume)
            return QStringLiteral("No startup disk found on this computer");
        break;
    case ModuleKind::sensors:
        if (!r.menubarTemperature && r.sensorsReady)
            return QStringLiteral("No temperature sensors found on this computer");
        break;
    case ModuleKind::battery:
        if (!r.batteryPresent)
            return QStringLiteral("No battery found on this computer");
        break;
    default: break;
    }
    return std::nullopt;
}

QString toolTip(ModuleKind kind, const HubSnapshot& readings, const Config& config)
{
    if (const auto reason = unavailableReason(kind, readings))
        return *reason;
    // The weather and sun items say in words what their symbol shows.
    if (kind == ModuleKind::weather)
        return readings.weather ? readings.weather->description + QStringLiteral(", ") +
                                      temperature(config, readings.weather->temperature)
                                : QStringLiteral("Waiting for the first weather report");
    if (kind == ModuleKind::astronomy)
        return readings.nextSunEvent
                   ? (readings.nextSunEvent->isSunrise ? QStringLiteral("Sunrise at ") : QStringLiteral("Sunset at ")) +
                         timeText(readings.nextSunEvent->time)
                   : QStringLiteral("No sunrise or sunset ahead");
    return lines(kind, readings, config).join(QLatin1Char('\n'));
}

} // namespace pulsebar::MenuBarContent

