#include "devices/connected_device.h"

#include "devices/device_models.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>

namespace pulsebar {

QString connectionName(Connection connection)
{
    return connection == Connection::wifi ? QStringLiteral("Wi-Fi") : QStringLiteral("USB");
}

QString untrustedDeviceNote()
{
    return QStringLiteral("Unlock the device and trust this computer to read battery and storage.");
}

namespace PlistValue {

std::optional<double> number(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float: {
        const double n = value.toDouble();
        return std::isfinite(n) ? std::optional<double>(n) : std::nullopt;
    }
    default: return std::nullopt;
    }
}

std::optional<QString> text(const QVariant& value)
{
    if (value.typeId() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

std::optional<bool> flag(const QVariant& value)
{
    if (value.typeId() != QMetaType::Bool)
        return std::nullopt;
    return value.toBool();
}

} // namespace PlistValue

namespace {

// The first of the keys that holds a number, looked up in each dictionary in turn.
std::optional<double> firstNumber(std::initializer_list<const QVariantMap*> places,
                                  std::initializer_list<const char*> keys)
{
    for (const QVariantMap* place : places)
        for (const char* key : keys)
            if (const auto n = PlistValue::number(place->value(QLatin1String(key))))
                return n;
    return std::nullopt;
}

std::optional<int> whole(std::optional<double> n)
{
    if (!n || std::fabs(*n) > 2e9)
        return std::nullopt;
    return int(std::lround(*n));
}

std::optional<double> scaled(std::optional<double> n, double divisor)
{
    if (!n)
        return std::nullopt;
    return *n / divisor;
}

} // namespace

std::optional<DeviceBattery> DeviceBattery::registry(const QVariantMap& entry)
{
    const QVariantMap batteryData = entry.value(QStringLiteral("BatteryData")).toMap();
    const QVariantMap adapter = entry.value(QStringLiteral("AdapterDetails")).toMap();
    DeviceBattery b;
    b.cycleCount = whole(firstNumber({&batteryData, &entry}, {"CycleCount"}));
    b.designCapacity = whole(firstNumber({&batteryData, &entry}, {"DesignCapacity"}));
    b.maxCapacity =
        whole(firstNumber({&entry}, {"NominalChargeCapacity", "AppleRawMaxCapacity", "FullChargeCapacity"}));
    b.currentCharge = whole(firstNumber({&entry}, {"AppleRawCurrentCapacity", "RemainingCapacity"}));
    b.reportedHealth = whole(firstNumber({&entry}, {"MaximumCapacityPercent"}));
    b.temperature = scaled(firstNumber({&entry}, {"Temperature"}), 100); // hundredths of a degree
    b.voltage = scaled(firstNumber({&entry}, {"Voltage", "AppleRawBatteryVoltage"}), 1000); // mV
    b.amperage = scaled(firstNumber({&entry}, {"InstantAmperage"}), 1000);                  // mA
    b.adapterWatts = whole(firstNumber({&adapter}, {"Watts"}));
    if (b == DeviceBattery())
        return std::nullopt;
    return b;
}

std::optional<double> DeviceBattery::healthPercent() const
{
    if (reportedHealth)
        return double(*reportedHealth);
    if (maxCapacity && designCapacity && *designCapacity > 0)
        return double(*maxCapacity) / double(*designCapacity) * 100.0;
    return std::nullopt;
}

std::optional<QString> ConnectedDevice::modelName() const
{
    return productType ? DeviceModels::marketingName(*productType) : std::nullopt;
}

QString ConnectedDevice::displayName() const
{
    if (name && !name->isEmpty())
        return *name;
    return modelName().value_or(QStringLiteral("iPhone"));
}

QString ConnectedDevice::symbol() const
{
    if (deviceClass == QLatin1String("iPad"))
        return QStringLiteral("ipad");
    if (deviceClass == QLatin1String("iPod"))
        return QStringLiteral("ipodtouch");
    return QStringLiteral("iphone");
}

QString ConnectedDevice::systemName() const
{
    return deviceClass == QLatin1String("iPad") ? QStringLiteral("iPadOS") : QStringLiteral("iOS");
}

std::optional<int64_t> ConnectedDevice::storageUsed() const
{
    if (!storageTotal || !storageFree)
        return std::nullopt;
    return std::max<int64_t>(*storageTotal - *storageFree, 0);
}

} // namespace pulsebar
