#pragma once

#include "monitors/battery_monitor.h"
#include "platform/linux/device_class_listing.h"
#include "platform/linux/rooted_file_reader.h"

#include <map>
#include <memory>
#include <string>

namespace pulsebar {

class PowerServices;

// Batteries and adapters from sys/class/power_supply, the low-power setting from power-profiles-daemon
// (else the ACPI platform profile) and accessory batteries from power_supply devices and BlueZ.
class PowerSupplyReader : public BatteryReader {
public:
    // Without the system bus only the files are read (tests, machines without D-Bus).
    PowerSupplyReader(RootedFileReader sysfs, bool useSystemBus);
    ~PowerSupplyReader() override;

    PowerReading readPower() override;
    bool lowPowerMode() override;
    std::vector<BluetoothBattery> accessories() override;

    // "POWER_SUPPLY_ENERGY_NOW=…" lines as {"energy_now": "…"}.
    static std::map<std::string, std::string> parseUevent(std::string_view text);
    static BatteryReading batteryReading(const std::map<std::string, std::string>& attributes);

private:
    // Every attribute of one supply: one read of its uevent file, or the files one by one when that
    // read fails (a driver error on one property fails the whole uevent read).
    std::map<std::string, std::string> attributes(const std::string& supply) const;

    RootedFileReader m_sysfs;
    DeviceClassListing m_supplies;
    // Readings since the ACPI platform profile was found missing: a driver that offers one is loaded
    // at start-up, so on the live system its absence is checked again only now and then.
    int m_readingsWithoutProfile = 0;
    std::unique_ptr<PowerServices> m_services;
};


} // namespace pulsebar
