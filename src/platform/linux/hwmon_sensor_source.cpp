#include "platform/linux/hwmon_sensor_source.h"

#include "monitors/smc_sensor_source.h"

#include <algorithm>
#include <cctype>
#include <tuple>

namespace pulsebar {

namespace {

constexpr std::string_view hwmonClass = "sys/class/hwmon";
constexpr std::string_view thermalClass = "sys/class/thermal";

// "temp12_input" -> {"temp", 12, "input"}
struct AttributeName {
    std::string type;
    int index = 0;
    std::string attribute;
};

std::optional<AttributeName> parseAttribute(const std::string& name)
{
    std::size_t i = 0;
    while (i < name.size() && std::isalpha(uint8_t(name[i])))
        ++i;
    const std::size_t digits = i;
    while (i < name.size() && std::isdigit(uint8_t(name[i])))
        ++i;
    if (digits == 0 || i == digits || i >= name.size() || name[i] != '_')
        return std::nullopt;
    const auto index = SysText::toInt(std::string_view(name).substr(digits, i - digits));
    if (!index || *index > 100000)
        return std::nullopt;
    return AttributeName{name.substr(0, digits), int(*index), name.substr(i + 1)};
}

// hwmon10 after hwmon9: the numeric suffix orders entries the way the kernel created them.
std::vector<std::string> numericOrder(std::vector<std::string> names, std::string_view prefix)
{
    std::erase_if(names, [&](const std::string& n) { return n.rfind(prefix, 0) != 0; });
    const auto number = [&](const std::string& n) {
        return SysText::toInt(std::string_view(n).substr(prefix.size())).value_or(INT64_MAX);
    };
    std::stable_sort(names.begin(), names.end(),
                     [&](const std::string& a, const std::string& b) { return number(a) < number(b); });
    return names;
}

QString text(const std::optional<std::string>& line)
{
    return line ? SysText::name(*line) : QString();
}

} // namespace

HwmonSensorSource::HwmonSensorSource(RootedFileReader sysfs) : m_sysfs(std::move(sysfs)) {}

SensorGroup HwmonSensorSource::chipGroup(const QString& chip)
{
    static const std::map<QString, SensorGroup> exact{
        {"coretemp", SensorGroup::cpu},    {"k10temp", SensorGroup::cpu},   {"zenpower", SensorGroup::cpu},
        {"cpu_thermal", SensorGroup::cpu}, {"x86_pkg_temp", SensorGroup::cpu}, {"amdgpu", SensorGroup::gpu},
        {"radeon", SensorGroup::gpu},      {"nouveau", SensorGroup::gpu},   {"i915", SensorGroup::gpu},
        {"xe", SensorGroup::gpu},          {"nvme", SensorGroup::storage},  {"drivetemp", SensorGroup::storage},
        {"spd5118", SensorGroup::memory},  {"jc42", SensorGroup::memory},   {"acpitz", SensorGroup::system},
    };
    if (const auto it = exact.find(chip); it != exact.end())
        return it->second;
    if (chip.startsWith(QLatin1String("BAT")))
        return SensorGroup::battery;
    if (chip.startsWith(QLatin1String("iwlwifi")) || chip.startsWith(QLatin1String("ath")) ||
        chip.startsWith(QLatin1String("pch_")))
        return SensorGroup::system;
    return SensorGroup::other;
}

std::optional<double> HwmonSensorSource::readChannel(const Channel& channel) const
{
    const auto raw = m_sysfs.readDouble(channel.file);
    return raw ? std::optional<double>(*raw / channel.divisor) : std::nullopt;
}

void HwmonSensorSource::addCandidate(std::vector<Sensor>& found, Sensor candidate, Channel channel)
{
    // A sensor that cannot be read at discovery cannot pass the plausibility filter either.
    const auto value = readChannel(channel);
    if (!value || m_channels.count(candidate.key))
        return;
    candidate.value = *value;
    m_channels.emplace(candidate.key, std::move(channel));
    found.push_back(std::move(candidate));
}

void HwmonSensorSource::discoverChip(const std::string& dir, const QString& chip, const QString& keyPrefix,
                                     std::vector<Sensor>& found)
{
    const bool isAppleSMC = chip == QLatin1String("applesmc");
    const bool isWiFi = chip.startsWith(QLatin1String("iwlwifi")) || chip.startsWith(QLatin1String("ath"));
    std::vector<AttributeName> inputs;
    for (const std::string& entry : m_sysfs.list(dir))
        if (const auto a = parseAttribute(entry))
            if (a->attribute == "input" || (a->type == "power" && a->attribute == "average"))
                inputs.push_back(*a);
    // The sort keeps fans in channel order; power*_input wins over power*_average of the same channel.
    std::sort(inputs.begin(), inputs.end(), [](const AttributeName& a, const AttributeName& b) {
        return std::tie(a.type, a.index, b.attribute) < std::tie(b.type, b.index, a.attribute);
    });

    for (const AttributeName& a : inputs) {
        const std::string base = dir + "/" + a.type + std::to_string(a.index);
        const std::string file = base + "_" + a.attribute;
        if (a.type == "fan") {
            m_fans.push_back({file, base + "_min", base + "_max"});
            continue;
        }
        const QString label = text(m_sysfs.readLine(base + "_label"));
        Sensor c;
        c.key = keyPrefix + QString::fromStdString(a.type + std::to_string(a.index));
        c.name = label.isEmpty() ? chip : label;
        c.group = SensorGroup::power;
        if (a.type == "temp") {
            c.kind = SensorKind::temperature;
            c.group = chipGroup(chip);
            if (isAppleSMC && !label.isEmpty()) {
                const SensorDescription d = describeTemperature(label);
                c.key = label;
                c.name = d.name;
                c.group = d.group;
            } else if (isWiFi) {
                c.name = QStringLiteral("Wi-Fi");
            }
            addCandidate(found, std::move(c), {file, 1000.0});
        } else if (a.type == "power") {
            c.kind = SensorKind::power;
            addCandidate(found, std::move(c), {file, 1e6});
        } else if (a.type == "in") {
            c.kind = SensorKind::voltage;
            addCandidate(found, std::move(c), {file, 1000.0});
        } else if (a.type == "curr") {
            c.kind = SensorKind::current;
            addCandidate(found, std::move(c), {file, 1000.0});
        }
    }
}

void HwmonSensorSource::discoverThermalZones(std::vector<Sensor>& found)
{
    for (const std::string& zone : numericOrder(m_sysfs.list(thermalClass), "thermal_zone")) {
        const std::string dir = std::string(thermalClass) + "/" + zone;
        QString type = text(m_sysfs.readLine(dir + "/type"));
        if (type.isEmpty())
            type = QString::fromStdString(zone);
        // Zone types use '-' where hwmon chip names use '_' ("cpu-thermal").
        const QString chip = QString(type).replace(QLatin1Char('-'), QLatin1Char('_'));
        addCandidate(found, {QString::fromStdString(zone), type, chipGroup(chip), SensorKind::temperature, 0},
                     {dir + "/temp", 1000.0});
    }
}

std::vector<Sensor> HwmonSensorSource::discover()
{
    m_channels.clear();
    m_fans.clear();
    std::vector<Sensor> found;
    std::map<QString, int> chipsSeen;
    for (const std::string& entry : numericOrder(m_sysfs.list(hwmonClass), "hwmon")) {
        const std::string dir = std::string(hwmonClass) + "/" + entry;
        const QString chip = text(m_sysfs.readLine(dir + "/name"));
        if (chip.isEmpty())
            continue;
        // Two chips of one driver (two NVMe drives) need distinct keys: "nvme/…" and "nvme-2/…".
        const int seen = ++chipsSeen[chip];
        const QString keyPrefix = (seen == 1 ? chip : chip + QLatin1Char('-') + QString::number(seen)) + QLatin1Char('/');
        discoverChip(dir, chip, keyPrefix, found);
    }
    const bool hasTemperature = std::any_of(found.begin(), found.end(), [](const Sensor& c) {
        return c.kind == SensorKind::temperature;
    });
    if (!hasTemperature)
        discoverThermalZones(found);
    return found;
}

int HwmonSensorSource::fanCount()
{
    return int(m_fans.size());
}

std::optional<double> HwmonSensorSource::read(const QString& key)
{
    const auto it = m_channels.find(key);
    return it == m_channels.end() ? std::nullopt : readChannel(it->second);
}

std::optional<Fan> HwmonSensorSource::readFan(int index)
{
    if (index < 0 || index >= int(m_fans.size()))
        return std::nullopt;
    const FanFiles& files = m_fans[std::size_t(index)];
    // No fan turns backwards or faster than a turbine: anything else is a broken reading.
    const auto speed = [&](const std::string& file) -> std::optional<double> {
        const auto rpm = m_sysfs.readDouble(file);
        return rpm && *rpm >= 0 && *rpm <= Fan::maxRpm ? rpm : std::nullopt;
    };
    const auto rpm = speed(files.input);
    if (!rpm)
        return std::nullopt;
    return Fan{index, *rpm, speed(files.minimum).value_or(0), speed(files.maximum).value_or(0)};
}


} // namespace pulsebar
