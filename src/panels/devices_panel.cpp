#include "panels/panel_content.h"

#include "core/fmt.h"
#include "panels/panel_rows.h"

namespace pulsebar::PanelContent {

namespace {

using PanelRows::bar;
using PanelRows::note;
using PanelRows::tile;
using PanelRows::value;

const QString separator = QStringLiteral(" · ");

QString storage(int64_t bytes)
{
    return Fmt::bytes(double(bytes), 1000);
}

// "76% · Charging", "100% · Charged".
QString charge(const ConnectedDevice& d)
{
    QString text = Fmt::percent(*d.batteryLevel);
    if (d.fullyCharged == true)
        text += separator + QStringLiteral("Charged");
    else if (d.isCharging == true)
        text += separator + QStringLiteral("Charging");
    return text;
}

PartColor chargeColor(const ConnectedDevice& d)
{
    if (*d.batteryLevel < 15)
        return PartColor::red;
    return d.isCharging == true ? PartColor::green : PartColor::foreground;
}

// "iPhone 15 Pro · iOS 18.1": what the device is and runs, as far as it is known.
QString identity(const ConnectedDevice& d)
{
    QStringList parts;
    if (const std::optional<QString> model = d.modelName() ? d.modelName() : d.productType)
        parts << *model;
    if (d.osVersion)
        parts << d.systemName() + QLatin1Char(' ') + *d.osVersion;
    return parts.join(separator);
}

void addBatteryHealth(PanelSection& section, const DeviceBattery& b, const Config& config)
{
    if (const auto health = b.healthPercent())
        section.rows.push_back(value(QStringLiteral("Battery health"), Fmt::percent(*health)));
    if (b.cycleCount)
        section.rows.push_back(value(QStringLiteral("Cycle count"), QString::number(*b.cycleCount)));
    if (b.maxCapacity && b.designCapacity)
        section.rows.push_back(value(QStringLiteral("Capacity"), QString::number(*b.maxCapacity) + QStringLiteral(" of ") +
                                                                     QString::number(*b.designCapacity) +
                                                                     QStringLiteral(" mAh")));
    if (b.temperature)
        section.rows.push_back(value(QStringLiteral("Temperature"), Fmt::temperature(config.temperatureUnit, b.temperature, 0)));
}

PanelSection deviceSection(const ConnectedDevice& d, const Config& config)
{
    PanelSection section{d.displayName(), {}};
    section.rows.push_back(value(connectionName(d.connection), identity(d)));
    if (!d.trusted) {
        section.rows.push_back(note(untrustedDeviceNote()));
        return section;
    }
    if (d.batteryLevel)
        section.rows.push_back(bar(QStringLiteral("Charge"), charge(d), *d.batteryLevel / 100.0, chargeColor(d)));
    if (const auto used = d.storageUsed(); used && *d.storageTotal > 0)
        section.rows.push_back(bar(QStringLiteral("Storage"),
                                   storage(*d.storageFree) + QStringLiteral(" free of ") + storage(*d.storageTotal),
                                   double(*used) / double(*d.storageTotal)));
    if (d.battery)
        addBatteryHealth(section, *d.battery, config);
    return section;
}

} // namespace

std::optional<PanelRow> devicesTile(const PanelSnapshot& s, const Config&)
{
    if (s.devices.empty())
        return std::nullopt;
    const ConnectedDevice& first = s.devices.front();
    PanelRow row = tile(first.symbol(), QStringLiteral("Devices"), {}, {}, std::nullopt);
    row.tilePanel = OverviewItem::devices;
    if (s.devices.size() == 1) {
        row.label = first.displayName();
        row.value = first.batteryLevel ? Fmt::percent(*first.batteryLevel) : QStringLiteral("—");
        if (!first.trusted)
            row.detail = QStringLiteral("Not trusted");
        else
            row.detail = first.modelName().value_or(connectionName(first.connection)) +
                         (first.isCharging == true ? separator + QStringLiteral("Charging") : QString());
        return row;
    }
    row.value = QString::number(s.devices.size()) + QStringLiteral(" connected");
    QStringList names;
    for (const ConnectedDevice& d : s.devices)
        names << (d.batteryLevel ? d.displayName() + QLatin1Char(' ') + Fmt::percent(*d.batteryLevel) : d.displayName());
    row.detail = names.join(separator);
    return row;
}

PanelModel devices(const PanelSnapshot& s, const Config& config)
{
    PanelModel model{ModuleKind::combined, QStringLiteral("Devices"), {}, {}, {}, {}, OverviewItem::devices};
    if (s.devices.empty()) {
        model.sections.push_back({{}, {note(QStringLiteral("No iPhone or iPad is connected. Connect one with its "
                                                           "cable, unlock it and trust this computer."))}});
        return model;
    }
    model.subtitle = s.devices.size() == 1 ? QStringLiteral("1 device")
                                           : QString::number(s.devices.size()) + QStringLiteral(" devices");
    for (const ConnectedDevice& d : s.devices)
        model.sections.push_back(deviceSection(d, config));
    return model;
}

} // namespace pulsebar::PanelContent
