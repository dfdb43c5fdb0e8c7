#pragma once

#include "core/enum_names.h"

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <cstdint>
#include <optional>

namespace pulsebar {

enum class Connection { usb, wifi };

template <>
struct EnumNames<Connection> {
    static constexpr std::array<std::string_view, 2> names{"usb", "wifi"};
};

// "USB" or "Wi-Fi", as people read it.
QString connectionName(Connection connection);

// Battery health as a phone or tablet reports it in its power-source registry entry.
struct DeviceBattery {
    std::optional<int> cycleCount;
    std::optional<int> designCapacity;  // mAh
    std::optional<int> maxCapacity;     // mAh
    std::optional<int> currentCharge;   // mAh
    std::optional<int> reportedHealth;  // percent, as the device states it
    std::optional<double> temperature;  // °C
    std::optional<double> voltage;      // V
    std::optional<double> amperage;     // A, negative while discharging
    std::optional<int> adapterWatts;

    // The registry dictionary's figures; absent when not one of them could be read. Devices send
    // their numbers as integers or reals of any width; anything else counts as missing.
    static std::optional<DeviceBattery> registry(const QVariantMap& entry);

    // The device's own figure, else the full charge capacity against the design capacity.
    std::optional<double> healthPercent() const;

    bool operator==(const DeviceBattery&) const = default;
};

// One phone, tablet or iPod attached by USB or reachable over Wi-Fi. A device that does not trust this
// computer (or is locked) lists only its identity: every other field stays absent.
struct ConnectedDevice {
    QString id; // the device's UDID
    Connection connection = Connection::usb;
    bool trusted = false;
    std::optional<QString> name;        // "DeviceName"
    std::optional<QString> productType; // model code, "iPhone15,2"
    std::optional<QString> deviceClass; // "iPhone", "iPad", "iPod"
    std::optional<QString> osVersion;   // "ProductVersion"
    std::optional<int> batteryLevel;    // percent
    std::optional<bool> isCharging;
    std::optional<bool> fullyCharged;
    std::optional<int64_t> storageTotal; // bytes
    std::optional<int64_t> storageFree;  // bytes available for data
    std::optional<int64_t> dataCapacity; // bytes of the data partition
    std::optional<QString> modelNumber;
    std::optional<QString> regionInfo;
    std::optional<QString> buildVersion;
    std::optional<QString> serialNumber;
    std::optional<DeviceBattery> battery;

    // The marketing name of the model code ("iPhone 14 Pro"); absent for a code the table lacks.
    std::optional<QString> modelName() const;
    // The user's name for the device, else its model, else "iPhone".
    QString displayName() const;
    // The symbol drawn for it: "ipad", "ipodtouch" or "iphone".
    QString symbol() const;
    // "iPadOS" on iPads, "iOS" on everything else.
    QString systemName() const;
    // Bytes in use: the whole disk less what is still available, as the device's own settings count it.
    std::optional<int64_t> storageUsed() const;

    bool operator==(const ConnectedDevice&) const = default;
};

// What interfaces show for a device that does not trust this computer.
QString untrustedDeviceNote();

namespace PlistValue {
// A number of any numeric type; absent for anything else, including booleans and numeric text.
std::optional<double> number(const QVariant& value);
std::optional<QString> text(const QVariant& value);
std::optional<bool> flag(const QVariant& value);
} // namespace PlistValue

} // namespace pulsebar
