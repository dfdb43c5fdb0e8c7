#include "monitors/smc_sensor_source.h"

#include <algorithm>
#include <array>

namespace pulsebar {

namespace {

struct PowerKey {
    const char* key;
    const char* name;
    SensorKind kind;
};

constexpr std::array<PowerKey, 10> powerKeys{{
    {"PSTR", "System Total", SensorKind::power},
    {"PDTR", "DC In", SensorKind::power},
    {"PPBR", "Battery", SensorKind::power},
    {"PCPC", "CPU Package", SensorKind::power},
    {"PC0C", "CPU Core", SensorKind::power},
    {"PG0R", "GPU", SensorKind::power},
    {"VD0R", "DC In", SensorKind::voltage},
    {"VP0R", "12V Rail", SensorKind::voltage},
    {"ID0R", "DC In", SensorKind::current},
    {"IPBR", "Battery", SensorKind::current},
}};

const PowerKey* powerKey(const std::string& key)
{
    for (const PowerKey& p : powerKeys)
        if (key == p.key)
            return &p;
    return nullptr;
}

} // namespace

SMCSensorSource::SMCSensorSource(SMC& smc) : m_smc(smc) {}

std::optional<double> SMCSensorSource::value(const std::string& key)
{
    const auto v = m_smc.read(key);
    return v ? v->doubleValue() : std::nullopt;
}

std::vector<Sensor> SMCSensorSource::discover()
{
    std::vector<Sensor> found;
    if (!m_smc.isOpen())
        return found;
    const int count = m_smc.keyCount();
    for (int i = 0; i < count; ++i) {
        const auto key = m_smc.key(i);
        if (!key)
            continue;
        const QString name = QString::fromStdString(*key);
        if (key->front() == 'T') {
            if (const auto v = value(*key)) {
                const SensorDescription d = describeTemperature(name);
                found.push_back({name, d.name, d.group, SensorKind::temperature, *v});
            }
        } else if (const PowerKey* p = powerKey(*key)) {
            if (const auto v = value(*key))
                found.push_back({name, QString::fromLatin1(p->name), SensorGroup::power, p->kind, *v});
        }
    }
    // A garbled count must not turn into thousands of fan reads per tick.
    m_fanCount = int(std::clamp(value("FNum").value_or(0), 0.0, 16.0));
    return found;
}

int SMCSensorSource::fanCount()
{
    return m_fanCount;
}

std::optional<double> SMCSensorSource::read(const QString& key)
{
    return value(key.toStdString());
}

std::optional<Fan> SMCSensorSource::readFan(int index)
{
    const std::string prefix = "F" + std::to_string(index);
    const auto actual = value(prefix + "Ac");
    if (!actual)
        return std::nullopt;
    return Fan{index, *actual, value(prefix + "Mn").value_or(0), value(prefix + "Mx").value_or(0)};
}

} // namespace pulsebar
