#include "platform/linux/power_supply_reader.h"

#include "platform/linux/power_services.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace pulsebar {

namespace {

constexpr std::string_view supplyClass = "sys/class/power_supply";

constexpr std::array<const char*, 28> attributeFiles{
    "type", "scope", "present", "online", "status", "capacity", "energy_now", "energy_full",
    "energy_full_design", "charge_now", "charge_full", "charge_full_design", "power_now", "current_now",
    "voltage_now", "voltage_min_design", "voltage_max", "current_max", "cycle_count", "temp",
    "time_to_empty_now", "time_to_full_now", "health", "model_name", "manufacturer", "capacity_level",
    "usb_type", "technology"};

std::optional<std::string> lookup(const std::map<std::string, std::string>& attributes, const char* name)
{
    const auto it = attributes.find(name);
    if (it == attributes.end() || it->second.empty())
        return std::nullopt;
    return it->second;
}

std::optional<int64_t> number(const std::map<std::string, std::string>& attributes, const char* name)
{
    const auto text = lookup(attributes, name);
    return text ? SysText::toInt(*text) : std::nullopt;
}

std::optional<QString> string(const std::map<std::string, std::string>& attributes, const char* name)
{
    const auto text = lookup(attributes, name);
    return text ? std::optional<QString>(SysText::name(*text)) : std::nullopt;
}

bool isDeviceScope(const std::map<std::string, std::string>& attributes)
{
    return lookup(attributes, "scope") == "Device";
}

} // namespace

PowerSupplyReader::PowerSupplyReader(RootedFileReader sysfs, bool useSystemBus)
    : m_sysfs(std::move(sysfs)), m_supplies(m_sysfs, std::string(supplyClass))
{
    if (useSystemBus)
        m_services = std::make_unique<PowerServices>(QDBusConnection::systemBus());
}

PowerSupplyReader::~PowerSupplyReader() = default;

std::map<std::string, std::string> PowerSupplyReader::parseUevent(std::string_view text)
{
    constexpr std::string_view prefix = "POWER_SUPPLY_";
    std::map<std::string, std::string> out;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos)
            end = text.size();
        const std::string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        const std::size_t equals = line.find('=');
        if (line.substr(0, prefix.size()) != prefix || equals == std::string_view::npos)
            continue;
        std::string key(line.substr(prefix.size(), equals - prefix.size()));
        for (char& c : key)
            c = char(std::tolower(uint8_t(c)));
        out[key] = std::string(SysText::trim(line.substr(equals + 1)));
    }
    return out;
}

std::map<std::string, std::string> PowerSupplyReader::attributes(const std::string& supply) const
{
    const std::string dir = std::string(supplyClass) + "/" + supply + "/";
    std::map<std::string, std::string> out;
    if (const auto uevent = m_sysfs.readText(dir + "uevent", 16 * 1024))
        out = parseUevent(*uevent);
    if (out.empty()) {
        for (const char* name : attributeFiles)
            if (auto line = m_sysfs.readLine(dir + name))
                out[name] = std::move(*line);
    } else if (!out.count("type")) {
        // Older kernels leave the type out of the uevent file.
        if (auto type = m_sysfs.readLine(dir + "type"))
            out["type"] = std::move(*type);
    }
    return out;
}

BatteryReading PowerSupplyReader::batteryReading(const std::map<std::string, std::string>& a)
{
    BatteryReading b;
    b.status = string(a, "status");
    if (const auto capacity = number(a, "capacity"))
        b.capacity = double(*capacity);
    b.energyNow = number(a, "energy_now");
    b.energyFull = number(a, "energy_full");
    b.energyFullDesign = number(a, "energy_full_design");
    b.chargeNow = number(a, "charge_now");
    b.chargeFull = number(a, "charge_full");
    b.chargeFullDesign = number(a, "charge_full_design");
    b.powerNow = number(a, "power_now");
    b.currentNow = number(a, "current_now");
    b.voltageNow = number(a, "voltage_now");
    b.voltageMinDesign = number(a, "voltage_min_design");
    b.cycleCount = number(a, "cycle_count");
    b.temp = number(a, "temp");
    b.timeToEmpty = number(a, "time_to_empty_now");
    b.timeToFull = number(a, "time_to_full_now");
    b.health = string(a, "health");
    return b;
}

PowerReading PowerSupplyReader::readPower()
{
    PowerReading power;
    for (const std::string& supply : m_supplies.entries()) {
        const auto a = attributes(supply);
        const auto type = lookup(a, "type");
        if (!type || isDeviceScope(a))
            continue;
        if (*type == "Battery") {
            // An empty bay of a machine with two battery slots still has its supply entry.
            if (number(a, "present") != 0)
                power.batteries.push_back(batteryReading(a));
        } else if (*type == "Mains" || *type == "USB") {
            AdapterReading adapter;
            adapter.online = number(a, "online") == 1;
            adapter.name = string(a, "model_name");
            adapter.voltageMax = number(a, "voltage_max");
            adapter.currentMax = number(a, "current_max");
            power.adapters.push_back(adapter);
        }
    }
    return power;
}

bool PowerSupplyReader::lowPowerMode()
{
    if (m_services)
        if (const auto saver = m_services->powerSaver())
            return *saver;
    if (m_readingsWithoutProfile > 0 && ++m_readingsWithoutProfile <= DeviceClassListing::samplesBetweenListings)
        return false;
    const auto profile = m_sysfs.readLine("sys/firmware/acpi/platform_profile");
    m_readingsWithoutProfile = !profile && m_sysfs.isRunningSystem() ? 1 : 0;
    return profile == "low-power";
}

std::vector<BluetoothBattery> PowerSupplyReader::accessories()
{
    std::vector<BluetoothBattery> list;
    for (const std::string& supply : m_supplies.entries()) {
        const auto a = attributes(supply);
        const auto capacity = number(a, "capacity");
        if (!isDeviceScope(a) || !capacity)
            continue;
        const QString name = string(a, "model_name").value_or(QString::fromStdString(supply));
        list.push_back({name, int(std::clamp<int64_t>(*capacity, 0, 100))});
    }
    if (m_services) {
        // BlueZ answers asynchronously: this read returns its previous answer and asks again.
        const auto& bluez = m_services->bluetoothBatteries();
        list.insert(list.end(), bluez.begin(), bluez.end());
        m_services->refreshBluetooth();
    }
    return list;
}


} // namespace pulsebar
