#include "monitors/sensor_monitor.h"

#include <QMetaObject>

#include <algorithm>
#include <array>
#include <cmath>

namespace pulsebar {

namespace {

struct TemperatureFamily {
    const char* prefix;
    const char* name;
    SensorGroup group;
};

constexpr std::array<TemperatureFamily, 15> temperatureFamilies{{
    {"Tp", "CPU Performance Core", SensorGroup::cpu},
    {"Te", "CPU Efficiency Core", SensorGroup::cpu},
    {"Tg", "GPU", SensorGroup::gpu},
    {"TG", "GPU", SensorGroup::gpu},
    {"Tm", "Memory", SensorGroup::memory},
    {"TM", "Memory", SensorGroup::memory},
    {"TH", "SSD", SensorGroup::storage},
    {"TB", "Battery", SensorGroup::battery},
    {"TW", "Wi-Fi", SensorGroup::system},
    {"Ts", "Palm Rest", SensorGroup::system},
    {"Ta", "Airflow", SensorGroup::system},
    {"TA", "Ambient", SensorGroup::system},
    {"TP", "Platform Controller Hub", SensorGroup::system},
    {"TI", "Thunderbolt", SensorGroup::system},
    {"TC", nullptr, SensorGroup::cpu}, // named by the rest of the key
}};

QString cpuTemperatureName(const QString& key)
{
    if (key == QLatin1String("TC0P"))
        return QStringLiteral("CPU Proximity");
    if (key.size() == 4 && key.endsWith(QLatin1Char('C')) && key[2].isDigit())
        return QStringLiteral("CPU Core");
    return QStringLiteral("CPU Die");
}

} // namespace

SensorDescription describeTemperature(const QString& key)
{
    const QStringView prefix = QStringView(key).left(2);
    for (const TemperatureFamily& family : temperatureFamilies)
        if (prefix == QLatin1String(family.prefix))
            return {family.name ? QString::fromLatin1(family.name) : cpuTemperatureName(key), family.group};
    return {QStringLiteral("Sensor ") + key, SensorGroup::other};
}

bool isPlausible(SensorKind kind, double value)
{
    if (!std::isfinite(value))
        return false;
    if (kind == SensorKind::temperature)
        return value > 5.0 && value < 125.0;
    return value >= 0.0 && value < 1000.0;
}

std::vector<Sensor> SensorMonitor::catalogue(std::vector<Sensor> candidates)
{
    std::vector<Sensor> found;
    for (Sensor& c : candidates)
        if (isPlausible(c.kind, c.value)) {
            c.peak = c.value;
            found.push_back(std::move(c));
        }
    std::stable_sort(found.begin(), found.end(), [](const Sensor& a, const Sensor& b) { return a.key < b.key; });

    std::map<QString, int> occurrences;
    for (const Sensor& s : found)
        ++occurrences[s.name];
    std::map<QString, int> ordinal;
    for (Sensor& s : found)
        if (occurrences[s.name] > 1)
            s.name += QLatin1Char(' ') + QString::number(++ordinal[s.name]);
    return found;
}

SensorMonitor::SensorMonitor(std::shared_ptr<SensorSource> source, QObject* parent)
    : QObject(parent), m_source(std::move(source))
{
}

SensorMonitor::~SensorMonitor()
{
    // The discovery thread posts its result to this object; it must be done before the object goes.
    if (m_discovery.joinable())
        m_discovery.join();
}

void SensorMonitor::start()
{
    if (m_started || !m_source)
        return;
    m_started = true;
    std::promise<Discovered> promise;
    m_discovered = promise.get_future();
    m_discovery = std::thread([this, source = m_source, promise = std::move(promise)]() mutable {
        auto found = catalogue(source->discover());
        promise.set_value(Discovered{std::move(found), source->fanCount()});
        QMetaObject::invokeMethod(this, [this] { publishDiscovered(); }, Qt::QueuedConnection);
    });
}

void SensorMonitor::publishDiscovered()
{
    if (!m_discovered.valid())
        return; // published already, by awaitDiscovery
    Discovered discovered = m_discovered.get();
    publish(std::move(discovered.sensors), discovered.fans);
}

bool SensorMonitor::awaitDiscovery(int timeoutMs)
{
    if (!m_started)
        discoverNow();
    else if (m_discovered.valid() && m_discovered.wait_for(std::chrono::milliseconds(timeoutMs)) == std::future_status::ready)
        publishDiscovered();
    return isReady;
}

void SensorMonitor::discoverNow()
{
    if (m_started || !m_source)
        return;
    m_started = true;
    auto found = catalogue(m_source->discover());
    publish(std::move(found), m_source->fanCount());
}

void SensorMonitor::publish(std::vector<Sensor> found, int fans)
{
    sensors = std::move(found);
    fanCount = std::max(0, fans);
    isReady = true;
    Q_EMIT ready();
}

void SensorMonitor::sample()
{
    if (!isReady)
        return;
    for (Sensor& s : sensors) {
        const auto value = m_source->read(s.key);
        if (!value || !std::isfinite(*value))
            continue; // a failed read keeps the previous value
        s.value = *value;
        s.peak = std::max(s.peak, *value);
        histories.try_emplace(s.key).first->second.add(*value);
    }

    std::vector<Fan> current;
    for (int i = 0; i < fanCount; ++i) {
        if (auto fan = m_source->readFan(i))
            current.push_back(*fan);
        else if (const auto old = std::find_if(fans.begin(), fans.end(), [i](const Fan& f) { return f.index == i; });
                 old != fans.end())
            current.push_back(*old);
    }
    fans = std::move(current);
    if (const auto fastest = fastestFanRpm())
        fanHistory.add(*fastest);
}

std::optional<double> SensorMonitor::fastestFanRpm() const
{
    if (fans.empty())
        return std::nullopt;
    return std::max_element(fans.begin(), fans.end(), [](const Fan& a, const Fan& b) { return a.rpm < b.rpm; })->rpm;
}

std::vector<Sensor> SensorMonitor::temperatures(SensorGroup group) const
{
    std::vector<Sensor> out;
    for (const Sensor& s : sensors)
        if (s.group == group && s.kind == SensorKind::temperature)
            out.push_back(s);
    return out;
}

std::optional<TemperatureSummary> SensorMonitor::summary(SensorGroup group) const
{
    const auto list = temperatures(group);
    if (list.empty())
        return std::nullopt;
    double sum = 0;
    double maximum = list.front().value;
    for (const Sensor& s : list) {
        sum += s.value;
        maximum = std::max(maximum, s.value);
    }
    return TemperatureSummary{sum / double(list.size()), maximum};
}

std::optional<double> SensorMonitor::cpuTemperature() const
{
    if (const auto cpu = summary(SensorGroup::cpu))
        return cpu->maximum;
    std::optional<double> hottest;
    for (const Sensor& s : sensors)
        if (s.kind == SensorKind::temperature && (!hottest || s.value > *hottest))
            hottest = s.value;
    return hottest;
}

std::optional<Sensor> SensorMonitor::sensor(const QString& key) const
{
    for (const Sensor& s : sensors)
        if (s.key == key)
            return s;
    return std::nullopt;
}

} // namespace pulsebar
