#include "platform/linux/machine_reader.h"

#include <string>

namespace pulsebar {

LinuxMachineReader::LinuxMachineReader(RootedFileReader fs) : m_fs(std::move(fs))
{
}


namespace {

// Firmware strings are NUL-terminated in the device tree and padded with blanks in DMI.
std::optional<QString> cleanName(const std::optional<std::string>& raw)
{
    if (!raw)
        return std::nullopt;
    std::string_view text(*raw);
    if (const auto nul = text.find('\0'); nul != std::string_view::npos)
        text = text.substr(0, nul);
    text = SysText::trim(text);
    // Vendors that never filled the field leave placeholders behind.
    const QString name = SysText::name(text);
    if (name.isEmpty() || name.compare(QLatin1String("To Be Filled By O.E.M."), Qt::CaseInsensitive) == 0
        || name.compare(QLatin1String("System Product Name"), Qt::CaseInsensitive) == 0)
        return std::nullopt;
    return name;
}

} // namespace

std::optional<QString> LinuxMachineReader::readModel()
{
    if (auto name = cleanName(m_fs.readText("sys/class/dmi/id/product_name", 4096)))
        return name;
    return cleanName(m_fs.readText("proc/device-tree/model", 4096));
}

std::optional<QString> LinuxMachineReader::osReleaseValue(std::string_view text, std::string_view key)
{
    while (!text.empty()) {
        const auto end = text.find('\n');
        std::string_view line = SysText::trim(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (line.size() <= key.size() || line.substr(0, key.size()) != key || line[key.size()] != '=')
            continue;
        std::string_view value = SysText::trim(line.substr(key.size() + 1));
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
            value = value.substr(1, value.size() - 2);
        std::string unescaped;
        for (std::size_t i = 0; i < value.size(); ++i) {
            if (value[i] == '\\' && i + 1 < value.size())
                ++i;
            unescaped += value[i];
        }
        if (unescaped.empty())
            return std::nullopt;
        return SysText::name(unescaped);
    }
    return std::nullopt;
}

std::optional<QString> LinuxMachineReader::readOSVersion()
{
    std::optional<std::string> osRelease = m_fs.readText("etc/os-release", 65536);
    if (!osRelease)
        osRelease = m_fs.readText("usr/lib/os-release", 65536);
    std::optional<QString> name;
    if (osRelease) {
        name = osReleaseValue(*osRelease, "PRETTY_NAME");
        if (!name)
            name = osReleaseValue(*osRelease, "NAME");
    }
    const std::optional<std::string> kernel = m_fs.readLine("proc/sys/kernel/osrelease");
    const QString release = kernel && !kernel->empty() ? QString::fromStdString(*kernel) : QString();
    if (name && !release.isEmpty())
        return *name + QStringLiteral(" (") + release + QLatin1Char(')');
    if (name)
        return name;
    if (!release.isEmpty())
        return QStringLiteral("Linux (") + release + QLatin1Char(')');
    return std::nullopt;
}

std::vector<ThermalZoneReading> LinuxMachineReader::readThermalZones()
{
    std::vector<ThermalZoneReading> zones;
    const std::string base = "sys/class/thermal/";
    for (const std::string& entry : m_fs.list(base)) {
        if (entry.rfind("thermal_zone", 0) != 0)
            continue;
        const std::string zone = base + entry + '/';
        const std::optional<int64_t> milli = m_fs.readInt(zone + "temp");
        if (!milli)
            continue;
        ThermalZoneReading reading;
        reading.celsius = double(*milli) / 1000.0;
        for (int k = 0;; ++k) {
            const std::string trip = zone + "trip_point_" + std::to_string(k) + '_';
            const std::optional<std::string> type = m_fs.readLine(trip + "type");
            if (!type)
                break;
            const std::optional<int64_t> tripMilli = m_fs.readInt(trip + "temp");
            // Firmware marks unused trip points with zero or negative temperatures.
            if (tripMilli && *tripMilli > 0)
                reading.trips.push_back({QString::fromStdString(*type), double(*tripMilli) / 1000.0});
        }
        zones.push_back(std::move(reading));
    }
    return zones;
}

} // namespace pulsebar
