#include "menubar/tray_face.h"

#include "calendar/world_clock.h"
#include "core/fmt.h"

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

#include <cmath>

namespace pulsebar::TrayFaces {

namespace {

QStringList lineTexts(const MenuBarPart& part, bool pad)
{
    const auto fit = [&](const QString& text) { return pad ? padded(text, part.widthTemplate) : text; };
    if (part.kind == MenuBarPart::Kind::text)
        return {fit(part.text)};
    return {fit(part.text), fit(part.bottom)};
}

const MenuBarPart* firstIcon(const MenuBarParts& parts)
{
    for (const MenuBarPart& part : parts)
        if (part.isIcon())
            return &part;
    return nullptr;
}

bool drawsGraphic(DisplayStyle style)
{
    return style == DisplayStyle::graph || style == DisplayStyle::graphAndText;
}

QString wholeNumber(double value)
{
    return QString::number(std::llround(std::isfinite(value) ? value : 0));
}

// "09" over "41" for a time, in the locale's hours.
TrayIconValue clockValue(const QDateTime& at)
{
    const QString text = Fmt::time(at, at.timeZone());
    const qsizetype colon = text.indexOf(QLatin1Char(':'));
    if (colon < 0)
        return {text, {}, std::nullopt, PartColor::foreground};
    return {text.left(colon), text.mid(colon + 1).left(2), std::nullopt, PartColor::foreground};
}

} // namespace

QString padded(const QString& text, const QString& widthTemplate)
{
    const auto firstNumber = [](const QString& s) {
        const qsizetype at = std::find_if(s.begin(), s.end(), [](QChar c) { return c.isDigit(); }) - s.begin();
        int digits = 0;
        for (qsizetype i = at; i < s.size() && (s[i].isDigit() || s[i] == QLatin1Char('.')); ++i)
            digits += s[i].isDigit();
        return std::pair{at, digits};
    };
    const auto [at, digits] = firstNumber(text);
    // Three digits at most: the rare fourth ("1023 MB/s") is not worth a wider label all the time on
    // panels that have little room.
    const int widest = std::min(firstNumber(widthTemplate).second, 3);
    if (digits == 0 || digits >= widest)
        return text;
    return QString(text).insert(at, QString(widest - digits, figureSpace));
}

QString label(const MenuBarParts& parts, bool pad)
{
    QStringList out;
    for (const MenuBarPart& part : parts)
        if (part.isText())
            out << lineTexts(part, pad);
    return out.join(QLatin1Char(' '));
}

QString labelGuide(const MenuBarParts& parts)
{
    QStringList out;
    for (const MenuBarPart& part : parts) {
        if (part.kind == MenuBarPart::Kind::text)
            out << (part.widthTemplate.size() > part.text.size() ? part.widthTemplate : part.text);
        else if (part.kind == MenuBarPart::Kind::stacked)
            out << part.widthTemplate << part.widthTemplate;
    }
    return out.join(QLatin1Char(' '));
}

QString compactRate(double bytesPerSecond, bool bits)
{
    double scaled = bits ? bytesPerSecond * 8 : bytesPerSecond;
    const double step = bits ? 1000 : 1024;
    static const char* const prefixes[] = {"", "K", "M", "G", "T"};
    int unit = 0;
    while (scaled >= 999.5 && unit < 4) {
        scaled /= step;
        ++unit;
    }
    const QString digits = scaled < 9.95 && unit > 0 ? Fmt::number(scaled, 1) : wholeNumber(scaled);
    return digits + QLatin1String(prefixes[unit]);
}

TrayIconValue value(ModuleKind kind, const HubSnapshot& r, const Config& config)
{
    const auto share = [](double percent, PartColor color) {
        return TrayIconValue{wholeNumber(percent), {}, std::clamp(percent / 100.0, 0.0, 1.0), color};
    };
    const auto degrees = [&](std::optional<double> celsius) {
        if (!celsius)
            return TrayIconValue{};
        QString text = Fmt::temperature(config.temperatureUnit, celsius, 0);
        text.remove(QStringLiteral(" K"));
        return TrayIconValue{text, {}, std::nullopt, PartColor::foreground};
    };
    switch (kind) {
    case ModuleKind::combined:
    case ModuleKind::cpu: return share(r.cpuUser + r.cpuSystem, PartColor::blue);
    case ModuleKind::gpu: return r.gpuUtilization ? share(*r.gpuUtilization, PartColor::purple) : TrayIconValue{};
    case ModuleKind::memory:
        return share(r.memoryUsed, MenuBarContent::pressureColor(r.memoryPressureLevel));
    case ModuleKind::disks: return r.startupVolume && r.startupVolume->usedPercent() ? share(*r.startupVolume->usedPercent(), PartColor::foreground) : TrayIconValue{};
    case ModuleKind::network:
        if (r.internetReachable == false)
            return {};
        return {compactRate(r.download, config.bandwidthBits), {}, std::nullopt, PartColor::blue};
    case ModuleKind::sensors: return degrees(r.menubarTemperature);
    case ModuleKind::battery: {
        if (!r.batteryPresent)
            return {};
        const PartColor color = r.batteryPercent < 15 ? PartColor::red
                                : r.batteryCharging   ? PartColor::green
                                                      : PartColor::foreground;
        return share(r.batteryPercent, color);
    }
    case ModuleKind::weather: return r.weather ? degrees(r.weather->temperature) : TrayIconValue{};
    case ModuleKind::astronomy:
        if (!r.nextSunEvent)
            return {};
        return clockValue(QDateTime::fromMSecsSinceEpoch(qint64(r.nextSunEvent->time * 1000), QTimeZone::systemTimeZone()));
    case ModuleKind::time: {
        const std::vector<WorldClock::Clock> clocks = WorldClock::clocks(config.menubarClocks);
        if (clocks.empty())
            return {};
        return clockValue(QDateTime::fromMSecsSinceEpoch(qint64(r.time * 1000), clocks.front().zone));
    }
    }
    return {};
}

TrayFace face(const ModuleConfig& module, const HubSnapshot& readings, const Config& config, bool valueInIcon)
{
    const MenuBarParts all = MenuBarContent::allParts(module.kind, readings, config);
    const MenuBarParts chosen = MenuBarContent::select(all, module.style);
    const bool showsText = std::any_of(chosen.begin(), chosen.end(), [](const MenuBarPart& p) { return p.isText(); });

    TrayFace out;
    if (valueInIcon && showsText) {
        out.value = value(module.kind, readings, config);
        if (!out.value.isEmpty()) {
            out.icon = TrayFace::Icon::value;
            return out;
        }
    }
    if (showsText && !valueInIcon) {
        out.label = label(chosen);
        out.labelGuide = labelGuide(chosen);
    }
    // Offline must not look like idle: the crossed-out symbol instead of an empty graph.
    const bool offline = module.kind == ModuleKind::network && readings.internetReachable == false;
    if (drawsGraphic(module.style) && !offline) {
        for (const MenuBarPart& part : chosen)
            if (part.isGraphic() || part.kind == MenuBarPart::Kind::battery)
                out.iconParts.push_back(part);
        if (!out.iconParts.empty()) {
            out.icon = TrayFace::Icon::graphic;
            return out;
        }
    }
    // Every tray shows an icon: a text-only style shows the module's symbol beside its label.
    const MenuBarPart* symbol = firstIcon(chosen);
    if (!symbol)
        symbol = firstIcon(all);
    if (symbol)
        out.iconParts.push_back(*symbol);
    out.icon = TrayFace::Icon::symbol;
    return out;
}

} // namespace pulsebar::TrayFaces
