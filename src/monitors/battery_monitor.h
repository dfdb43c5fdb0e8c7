#pragma once

#include "history/history.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace pulsebar {

// The charge of a connected accessory (mouse, keyboard, headphones), identified by name.
struct BluetoothBattery {
    QString name;
    int percent = 0; // 0–100
    bool operator==(const BluetoothBattery&) const = default;
};

// One internal battery as the kernel reports it, in the kernel's units. Every figure is optional:
// drivers report either energy (µWh, µW) or charge (µAh, µA), and many leave some out.
struct BatteryReading {
    std::optional<QString> status; // "Charging", "Discharging", "Full", "Not charging", "Unknown"
    std::optional<double> capacity; // percent
    std::optional<int64_t> energyNow, energyFull, energyFullDesign; // µWh
    std::optional<int64_t> chargeNow, chargeFull, chargeFullDesign; // µAh
    std::optional<int64_t> powerNow;                                // µW
    std::optional<int64_t> currentNow;                              // µA, may be unsigned
    std::optional<int64_t> voltageNow, voltageMinDesign;            // µV
    std::optional<int64_t> cycleCount;
    std::optional<int64_t> temp;                    // tenths of °C
    std::optional<int64_t> timeToEmpty, timeToFull; // seconds
    std::optional<QString> health;
};

// A supply that powers the machine from outside (mains adapter, USB-C).
struct AdapterReading {
    bool online = false;
    std::optional<QString> name;
    std::optional<int64_t> voltageMax; // µV
    std::optional<int64_t> currentMax; // µA
};

struct PowerReading {
    std::vector<BatteryReading> batteries; // internal ones only
    std::vector<AdapterReading> adapters;
};

// The platform side of the battery: power supplies, the low-power setting and accessory batteries.
// Every call returns at once; slow services are asked asynchronously and answer from a cache.
class BatteryReader {
public:
    virtual ~BatteryReader() = default;
    virtual PowerReading readPower() = 0;
    virtual bool lowPowerMode() = 0;
    // Accessory batteries as found, possibly with repeated names.
    virtual std::vector<BluetoothBattery> accessories() = 0;
};

// The internal battery, the adapter, the low-power mode and the charge of accessories.
class BatteryMonitor {
public:
    explicit BatteryMonitor(std::unique_ptr<BatteryReader> reader);
    ~BatteryMonitor();

    bool present = false;
    double percent = 0;
    bool isCharging = false;
    bool isCharged = false;
    bool onAC = false;
    std::optional<int> minutesRemaining; // to full when charging, to empty when discharging
    std::optional<int> cycleCount;
    std::optional<int> designCapacity;  // mAh
    std::optional<int> maxCapacity;     // mAh
    std::optional<int> currentCapacity; // mAh
    std::optional<double> temperature;  // °C
    std::optional<double> voltage;      // V
    std::optional<double> amperage;     // A, negative while discharging
    std::optional<int> adapterWatts;
    std::optional<QString> adapterName;
    std::vector<double> cellVoltages; // V
    std::optional<QString> condition;
    bool lowPowerMode = false;
    History history; // percent, one entry every fifth tick
    std::vector<BluetoothBattery> bluetooth;
    int tick = 0;

    void sample();
    void readPowerSources(const PowerReading& power);
    void readSmartBattery(const PowerReading& power);
    void readBluetooth();

    // "No battery", "Charged", "Charging", "Not charging" or "On battery".
    QString stateDescription() const;
    // Maximum over design capacity, in percent.
    std::optional<double> healthPercent() const;
    // The system's verdict, else "Good" or "Service Recommended" from the health percent.
    std::optional<QString> displayedCondition() const;
    // The battery panel's health label.
    QString healthLabel() const;
    // Watts, negative while discharging.
    std::optional<double> powerDraw() const;

private:
    std::unique_ptr<BatteryReader> m_reader;
};

} // namespace pulsebar
