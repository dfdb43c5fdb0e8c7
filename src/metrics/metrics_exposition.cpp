#include "metrics/metrics_exposition.h"

#include "hub/hub.h"
#include "insight/insight_engine.h"

#include <QList>

#include <charconv>
#include <cmath>

namespace pulsebar {

// ---- MetricsWriter ----

MetricsWriter::MetricsWriter(MetricsFormat format) : m_format(format)
{
    m_out.reserve(8192);
}

void MetricsWriter::family(std::string_view name, Type type, std::string_view help)
{
    const bool openMetrics = m_format == MetricsFormat::openMetrics;
    m_sampleName = QByteArray(name.data(), qsizetype(name.size()));
    if (type == Type::counter)
        m_sampleName += "_total";
    else if (type == Type::info)
        m_sampleName += "_info";
    // OpenMetrics names the family without the suffix; the older format names it as its samples.
    const QByteArray familyName = openMetrics ? QByteArray(name.data(), qsizetype(name.size())) : m_sampleName;
    const char* typeName = type == Type::counter ? "counter" : type == Type::info && openMetrics ? "info" : "gauge";
    // Help texts are this file's own constants: none holds a backslash, a quote or a line break.
    m_out += "# HELP " + familyName + ' ' + QByteArray(help.data(), qsizetype(help.size())) + '\n';
    m_out += "# TYPE " + familyName + ' ' + typeName + '\n';
    m_labelSets.clear();
}

void MetricsWriter::sample(double value, std::initializer_list<Label> labels)
{
    QByteArray labelText;
    if (labels.size() > 0) {
        labelText += '{';
        bool first = true;
        for (const Label& label : labels) {
            if (!first)
                labelText += ',';
            first = false;
            labelText.append(label.name.data(), qsizetype(label.name.size()));
            labelText += "=\"";
            appendEscapedLabelValue(labelText, label.value);
            labelText += '"';
        }
        labelText += '}';
    }
    if (m_labelSets.contains(labelText))
        return;
    m_labelSets.insert(labelText);
    m_out += m_sampleName;
    m_out += labelText;
    m_out += ' ';
    appendNumber(m_out, value);
    m_out += '\n';
}

QByteArray MetricsWriter::finish()
{
    if (m_format == MetricsFormat::openMetrics)
        m_out += "# EOF\n";
    return std::move(m_out);
}

void MetricsWriter::appendNumber(QByteArray& out, double value)
{
    if (std::isnan(value)) {
        out += "NaN";
        return;
    }
    if (std::isinf(value)) {
        out += value > 0 ? "+Inf" : "-Inf";
        return;
    }
    // Shortest text that reads back as the same double; whole numbers carry no exponent below 2^53.
    char buffer[32];
    const bool whole = value == std::trunc(value) && std::abs(value) < 9007199254740992.0;
    const auto result = whole ? std::to_chars(buffer, buffer + sizeof buffer, static_cast<long long>(value))
                              : std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, qsizetype(result.ptr - buffer));
}

void MetricsWriter::appendEscapedLabelValue(QByteArray& out, const QString& value)
{
    for (const char c : value.toUtf8()) {
        switch (c) {
        case '\\': out += "\\\\"; break;
        case '"': out += "\\\""; break;
        case '\n': out += "\\n"; break;
        default: out += c;
        }
    }
}

// ---- MetricsExposition ----

namespace MetricsExposition {

namespace {

struct MediaRange {
    QByteArrayView type;
    QByteArrayView version;
    double weight = 1;
};

MediaRange parseMediaRange(QByteArrayView text)
{
    MediaRange range;
    const QList<QByteArrayView> parts = [&] {
        QList<QByteArrayView> out;
        qsizetype start = 0;
        for (qsizetype i = 0; i <= text.size(); ++i)
            if (i == text.size() || text[i] == ';') {
                out.append(text.sliced(start, i - start).trimmed());
                start = i + 1;
            }
        return out;
    }();
    range.type = parts.value(0);
    for (qsizetype i = 1; i < parts.size(); ++i) {
        const qsizetype equals = parts[i].indexOf('=');
        if (equals < 0)
            continue;
        const QByteArrayView key = parts[i].first(equals).trimmed();
        const QByteArrayView value = parts[i].sliced(equals + 1).trimmed();
        if (key.compare("q", Qt::CaseInsensitive) == 0) {
            bool ok = false;
            const double weight = value.toDouble(&ok);
            range.weight = ok ? weight : 0;
        } else if (key.compare("version", Qt::CaseInsensitive) == 0) {
            range.version = value;
        }
    }
    return range;
}

} // namespace

MetricsFormat negotiate(QByteArrayView accept)
{
    double openMetricsWeight = 0;
    double textWeight = 0;
    qsizetype start = 0;
    for (qsizetype i = 0; i <= accept.size(); ++i) {
        if (i < accept.size() && accept[i] != ',')
            continue;
        const MediaRange range = parseMediaRange(accept.sliced(start, i - start));
        start = i + 1;
        if (range.type.compare("application/openmetrics-text", Qt::CaseInsensitive) == 0) {
            if (range.version.isEmpty() || range.version == "1.0.0")
                openMetricsWeight = std::max(openMetricsWeight, range.weight);
        } else if (range.type.compare("text/plain", Qt::CaseInsensitive) == 0 || range.type == "*/*"
                   || range.type == "text/*") {
            textWeight = std::max(textWeight, range.weight);
        }
    }
    return openMetricsWeight > 0 && openMetricsWeight >= textWeight ? MetricsFormat::openMetrics
                                                                    : MetricsFormat::prometheusText;
}

QByteArray contentType(MetricsFormat format)
{
    return format == MetricsFormat::openMetrics ? QByteArrayLiteral("application/openmetrics-text; version=1.0.0; charset=utf-8")
                                                : QByteArrayLiteral("text/plain; version=0.0.4; charset=utf-8");
}

namespace {

using Type = MetricsWriter::Type;

QString sensorGroupLabel(SensorGroup group)
{
    return enumName(group);
}

void writeCPU(MetricsWriter& w, const Hub& hub)
{
    const HubSnapshot& s = hub.snapshot();
    w.family("pulsebar_cpu_usage_ratio", Type::gauge,
             "Share of all CPU time since the previous sample, over every core (1 = all cores busy).");
    w.sample(s.cpuUser / 100, {{"mode", QStringLiteral("user")}});
    w.sample(s.cpuSystem / 100, {{"mode", QStringLiteral("system")}});
    w.family("pulsebar_cpu_logical_cores", Type::gauge, "Logical CPUs.");
    w.sample(hub.cpu.logicalCount);
    w.family("pulsebar_load_average", Type::gauge, "The kernel's load average over the period.");
    static const std::array<QString, 3> periods{QStringLiteral("1m"), QStringLiteral("5m"), QStringLiteral("15m")};
    for (std::size_t i = 0; i < periods.size(); ++i)
        w.sample(hub.cpu.loadAverage[i], {{"period", periods[i]}});

    if (hub.gpu.gpus.empty())
        return;
    w.family("pulsebar_gpu_usage_ratio", Type::gauge, "Utilisation of each graphics processor (1 = fully busy).");
    for (const GPU& gpu : hub.gpu.gpus)
        w.sample(gpu.utilization / 100, {{"gpu", QString::number(gpu.id)}, {"name", gpu.name}});
    w.family("pulsebar_gpu_memory_used_bytes", Type::gauge, "Memory in use on each graphics processor that reports it.");
    for (const GPU& gpu : hub.gpu.gpus)
        if (gpu.memoryUsed)
            w.sample(*gpu.memoryUsed, {{"gpu", QString::number(gpu.id)}, {"name", gpu.name}});
}

void writeMemory(MetricsWriter& w, const Hub& hub)
{
    const MemoryMonitor& memory = hub.memory;
    const HubSnapshot& s = hub.snapshot();
    w.family("pulsebar_memory_total_bytes", Type::gauge, "Physical memory installed.");
    w.sample(memory.total);
    w.family("pulsebar_memory_used_bytes", Type::gauge, "Memory in use: programs, the kernel's unreclaimable memory and compressed memory.");
    w.sample(memory.app + memory.wired + memory.compressed);
    w.family("pulsebar_memory_cached_bytes", Type::gauge, "File cache the kernel can drop.");
    w.sample(memory.cached);
    w.family("pulsebar_memory_pressure_ratio", Type::gauge, "Memory pressure: 1 - available / total.");
    w.sample(s.memoryPressure / 100);
    w.family("pulsebar_memory_pressure_level", Type::gauge, "Memory pressure level: 0 normal, 1 warning, 2 critical.");
    w.sample(double(s.memoryPressureLevel));
    w.family("pulsebar_swap_total_bytes", Type::gauge, "Swap space.");
    w.sample(memory.swapTotal);
    w.family("pulsebar_swap_used_bytes", Type::gauge, "Swap space in use.");
    w.sample(memory.swapUsed);
    w.family("pulsebar_processes", Type::gauge, "Processes listed.");
    w.sample(double(s.processes.size()));
}

void writeDisks(MetricsWriter& w, const Hub& hub)
{
    const DiskMonitor& disks = hub.disks;
    if (disks.lastBytes) {
        w.family("pulsebar_disk_read_bytes", Type::counter, "Bytes read from the physical disks, as the kernel counts them.");
        w.sample(double(disks.lastBytes->read));
        w.family("pulsebar_disk_written_bytes", Type::counter, "Bytes written to the physical disks, as the kernel counts them.");
        w.sample(double(disks.lastBytes->write));
    }
    if (disks.volumes.empty())
        return;
    w.family("pulsebar_volume_size_bytes", Type::gauge, "Size of each mounted volume.");
    for (const Volume& v : disks.volumes)
        w.sample(v.total, {{"mountpoint", v.url}, {"name", v.name}});
    w.family("pulsebar_volume_free_bytes", Type::gauge, "Space an ordinary user can still write on each volume.");
    for (const Volume& v : disks.volumes)
        w.sample(v.available, {{"mountpoint", v.url}, {"name", v.name}});
    w.family("pulsebar_volume_used_bytes", Type::gauge, "Space in use on each volume, without the blocks reserved for the system.");
    for (const Volume& v : disks.volumes)
        w.sample(v.used(), {{"mountpoint", v.url}, {"name", v.name}});
}

void writeNetwork(MetricsWriter& w, const Hub& hub)
{
    const NetworkMonitor& network = hub.network;
    const HubSnapshot& s = hub.snapshot();
    if (!network.interfaces.empty()) {
        w.family("pulsebar_network_receive_bytes", Type::counter, "Bytes received on each interface, as the kernel counts them.");
        for (const InterfaceInfo& i : network.interfaces)
            w.sample(double(i.totalDown), {{"interface", i.bsdName}});
        w.family("pulsebar_network_transmit_bytes", Type::counter, "Bytes sent on each interface, as the kernel counts them.");
        for (const InterfaceInfo& i : network.interfaces)
            w.sample(double(i.totalUp), {{"interface", i.bsdName}});
    }
    if (s.internetReachable) {
        w.family("pulsebar_internet_up", Type::gauge, "1 when the last ping was answered, 0 when it was not.");
        w.sample(*s.internetReachable ? 1 : 0);
    }
    if (s.pingMs) {
        w.family("pulsebar_ping_seconds", Type::gauge, "Round-trip time of the last answered ping.");
        w.sample(*s.pingMs / 1000);
    }
}

void writeSensors(MetricsWriter& w, const Hub& hub)
{
    const SensorMonitor& sensors = hub.sensors;
    bool started = false;
    for (const Sensor& sensor : sensors.sensors) {
        if (sensor.kind != SensorKind::temperature)
            continue;
        if (!started)
            w.family("pulsebar_temperature_celsius", Type::gauge, "Temperature of each sensor.");
        started = true;
        w.sample(sensor.value, {{"sensor", sensor.name}, {"group", sensorGroupLabel(sensor.group)}});
    }
    if (!sensors.fans.empty()) {
        w.family("pulsebar_fan_rpm", Type::gauge, "Speed of each fan, in revolutions per minute.");
        for (const Fan& fan : sensors.fans)
            w.sample(fan.rpm, {{"fan", QString::number(fan.index + 1)}});
    }
    if (const std::optional<double> power = hub.snapshot().power()) {
        w.family("pulsebar_power_watts", Type::gauge,
                 "The computer's power draw when it reports it, else what the battery delivers or takes.");
        w.sample(*power);
    }
}

void writeBattery(MetricsWriter& w, const Hub& hub)
{
    const BatteryMonitor& battery = hub.battery;
    const HubSnapshot& s = hub.snapshot();
    w.family("pulsebar_power_adapter_connected", Type::gauge, "1 while the computer runs on a power adapter.");
    w.sample(s.onAC || !s.batteryPresent ? 1 : 0);
    if (!s.batteryPresent)
        return;
    w.family("pulsebar_battery_charge_ratio", Type::gauge, "Charge of the internal battery (1 = full).");
    w.sample(s.batteryPercent / 100);
    w.family("pulsebar_battery_charging", Type::gauge, "1 while the battery charges.");
    w.sample(s.batteryCharging ? 1 : 0);
    if (s.minutesRemaining) {
        w.family("pulsebar_battery_time_remaining_seconds", Type::gauge, "Time to empty while discharging, to full while charging.");
        w.sample(*s.minutesRemaining * 60.0);
    }
    if (const std::optional<double> health = battery.healthPercent()) {
        w.family("pulsebar_battery_health_ratio", Type::gauge, "Full-charge capacity over design capacity.");
        w.sample(*health / 100);
    }
    if (battery.cycleCount) {
        w.family("pulsebar_battery_cycles", Type::gauge, "Charge cycles the battery reports.");
        w.sample(*battery.cycleCount);
    }
}

} // namespace

QByteArray render(const Hub& hub, MetricsFormat format)
{
    MetricsWriter w(format);
    w.family("pulsebar_build", Type::info, "Version of the Pulsebar that exports these metrics.");
    w.sample(1, {{"version", QStringLiteral(PULSEBAR_VERSION)}});
    w.family("pulsebar_sample_timestamp_seconds", Type::gauge, "When the values of this exposition were sampled, in seconds since 1970.");
    w.sample(hub.snapshot().time);
    writeCPU(w, hub);
    writeMemory(w, hub);
    writeDisks(w, hub);
    writeNetwork(w, hub);
    writeSensors(w, hub);
    writeBattery(w, hub);
    const Insight& insight = hub.insights().current();
    w.family("pulsebar_insight", Type::info, "What is loading the computer now: the insight line's kind and severity.");
    w.sample(1, {{"kind", enumName(insight.kind)}, {"severity", enumName(insight.severity)}});
    return w.finish();
}

} // namespace MetricsExposition

} // namespace pulsebar
