#include "panels/panel_content.h"

#include "core/fmt.h"
#include "menubar/menu_bar_content.h"
#include "monitors/process_actions.h"
#include "panels/panel_rows.h"
#include "speedtest/network_quality_method.h"

#include <QJsonArray>

#include <algorithm>
#include <cmath>

namespace pulsebar::PanelContent {

namespace {

using Row = PanelRow;
using Kind = PanelRow::Kind;
using PanelRows::bar;
using PanelRows::command;
using PanelRows::note;
using PanelRows::tile;
using PanelRows::trail;
using PanelRows::value;

const QString separator = QStringLiteral(" · ");

QString temperature(const Config& config, std::optional<double> celsius)
{
    return Fmt::temperature(config.temperatureUnit, celsius, 0);
}

QString memoryBytes(double bytes)
{
    return Fmt::bytes(bytes, 1024);
}

QString diskBytes(double bytes)
{
    return Fmt::bytes(bytes, 1000);
}

QString rpm(double value)
{
    return Fmt::number(value, 0) + QStringLiteral(" rpm");
}

QString watts(double value)
{
    return Fmt::number(value, 1) + QStringLiteral(" W");
}

QString minutes(int count)
{
    return Fmt::duration(std::max(count, 0) * 60.0);
}

std::vector<double> sum(const std::vector<double>& a, const std::vector<double>& b)
{
    // Both trails end at the same tick; a shorter one lacks its oldest values.
    std::vector<double> out = a.size() >= b.size() ? a : b;
    const std::vector<double>& other = a.size() >= b.size() ? b : a;
    const size_t offset = out.size() - other.size();
    for (size_t i = 0; i < other.size(); ++i)
        out[offset + i] += other[i];
    return out;
}

PanelSection processSection(const std::vector<ProcessSample>& top,
                            const std::function<QString(const ProcessSample&)>& figure)
{
    PanelSection section{QStringLiteral("Top Processes"), {}};
    for (const ProcessSample& process : top)
        section.rows.push_back(processRow(process, figure(process)));
    if (top.empty())
        section.rows.push_back(note(QStringLiteral("No processes to show yet.")));
    return section;
}

QString sensorGroupName(SensorGroup group)
{
    switch (group) {
    case SensorGroup::cpu: return QStringLiteral("CPU");
    case SensorGroup::gpu: return QStringLiteral("GPU");
    case SensorGroup::memory: return QStringLiteral("Memory");
    case SensorGroup::storage: return QStringLiteral("Storage");
    case SensorGroup::battery: return QStringLiteral("Battery");
    case SensorGroup::power: return QStringLiteral("Power");
    case SensorGroup::system: return QStringLiteral("System");
    case SensorGroup::other: return QStringLiteral("Other");
    }
    return {};
}

QString sensorValue(const Sensor& sensor, const Config& config)
{
    switch (sensor.kind) {
    case SensorKind::temperature: return temperature(config, sensor.value);
    case SensorKind::voltage: return Fmt::number(sensor.value, 2) + QStringLiteral(" V");
    case SensorKind::current: return Fmt::number(sensor.value, 2) + QStringLiteral(" A");
    case SensorKind::power: return watts(sensor.value);
    }
    return {};
}

QString internetStatus(const PanelSnapshot::Network& n)
{
    if (!n.internetReachable)
        return QStringLiteral("Checking…");
    return *n.internetReachable ? QStringLiteral("Connected") : QStringLiteral("Offline");
}

QString interfaceName(const PanelSnapshot::Network& n, const QString& bsdName)
{
    for (const InterfaceInfo& info : n.interfaces)
        if (info.bsdName == bsdName)
            return info.displayName == bsdName ? bsdName : info.displayName + QStringLiteral(" (") + bsdName + ')';
    return bsdName;
}

PartColor batteryColor(const PanelSnapshot::Battery& b)
{
    if (b.percent < 15)
        return PartColor::red;
    return b.isCharging ? PartColor::green : PartColor::foreground;
}

// --- overview tiles ---

std::optional<Row> cpuTile(const PanelSnapshot& s, const Config&)
{
    Row row = tile(QStringLiteral("cpu"), QStringLiteral("CPU"), Fmt::percent(s.cpu.user + s.cpu.system),
                   QStringLiteral("User ") + Fmt::percent(s.cpu.user) + separator + QStringLiteral("System ") +
                       Fmt::percent(s.cpu.system),
                   ModuleKind::cpu);
    row.series = {{QStringLiteral("CPU"), sum(s.cpu.userTrail, s.cpu.systemTrail), PartColor::blue}};
    row.trailMaximum = 100;
    return row;
}

std::optional<Row> gpuTile(const PanelSnapshot& s, const Config&)
{
    if (s.gpus.empty())
        return std::nullopt;
    const PanelSnapshot::Gpu& gpu = s.gpus.front();
    Row row = tile(QStringLiteral("display"), QStringLiteral("GPU"), Fmt::percent(gpu.utilization), gpu.name,
                   ModuleKind::gpu);
    row.series = {{QStringLiteral("GPU"), gpu.trail, PartColor::purple}};
    row.trailMaximum = 100;
    return row;
}

std::optional<Row> memoryTile(const PanelSnapshot& s, const Config&)
{
    const auto& m = s.memory;
    Row row = tile(QStringLiteral("memorychip"), QStringLiteral("Memory"), Fmt::percent(m.usedPercent()),
                   QStringLiteral("Pressure ") + Fmt::percent(m.pressure) + separator +
                       pressureLevelName(m.pressureLevel),
                   ModuleKind::memory);
    row.series = {{QStringLiteral("Pressure"), m.pressureTrail, MenuBarContent::pressureColor(m.pressureLevel)}};
    row.trailMaximum = 100;
    return row;
}

std::optional<Row> networkTile(const PanelSnapshot& s, const Config& config)
{
    const auto& n = s.network;
    QString detail = internetStatus(n);
    if (n.wifi && n.wifi->ssid)
        detail += separator + *n.wifi->ssid;
    Row row = tile(n.internetReachable == false ? QStringLiteral("network.slash") : QStringLiteral("network"),
                   QStringLiteral("Network"),
                   QStringLiteral("↓ ") + Fmt::rate(n.download, config.bandwidthBits) + QStringLiteral("  ↑ ") +
                       Fmt::rate(n.upload, config.bandwidthBits),
                   detail, ModuleKind::network);
    row.series = {{QStringLiteral("Upload"), n.uploadTrail, PartColor::orange},
                  {QStringLiteral("Download"), n.downloadTrail, PartColor::blue}};
    row.trailStyle = Row::TrailStyle::mirrored;
    return row;
}

std::optional<Row> diskTile(const PanelSnapshot& s, const Config&)
{
    if (s.disks.volumes.empty())
        return std::nullopt;
    const Volume& startup = s.disks.volumes.front();
    Row row = tile(QStringLiteral("internaldrive"), QStringLiteral("Disk"), Fmt::percent(startup.usedPercent()),
                   diskBytes(startup.available) + QStringLiteral(" free on ") + startup.name, ModuleKind::disks);
    row.series = {{QStringLiteral("Read"), s.disks.readTrail, PartColor::blue},
                  {QStringLiteral("Write"), s.disks.writeTrail, PartColor::orange}};
    row.trailStyle = Row::TrailStyle::mirrored;
    return row;
}

std::optional<Row> sensorsTile(const PanelSnapshot& s, const Config& config)
{
    if (!s.sensors.menubarTemperature && s.sensors.fans.empty())
        return std::nullopt;
    QString detail;
    if (!s.sensors.fans.empty()) {
        double fastest = 0;
        for (const Fan& fan : s.sensors.fans)
            fastest = std::max(fastest, fan.rpm);
        detail = QStringLiteral("Fan ") + rpm(fastest);
    }
    return tile(QStringLiteral("thermometer.medium"), QStringLiteral("Sensors"),
                temperature(config, s.sensors.menubarTemperature), detail, ModuleKind::sensors);
}

std::optional<Row> batteryTile(const PanelSnapshot& s, const Config&)
{
    const auto& b = s.battery;
    if (!b.present)
        return std::nullopt;
    QString detail = b.stateDescription;
    if (b.minutesRemaining && *b.minutesRemaining > 0)
        detail += separator + minutes(*b.minutesRemaining) + (b.isCharging ? " to full" : " left");
    Row row = tile(b.isCharging ? QStringLiteral("bolt.fill") : QString(), QStringLiteral("Battery"),
                   Fmt::percent(b.percent), detail, ModuleKind::battery);
    row.series = {{QStringLiteral("Charge"), b.trail, batteryColor(b) == PartColor::foreground ? PartColor::green
                                                                                           : batteryColor(b)}};
    row.trailMaximum = 100;
    return row;
}

std::optional<Row> keepAwakeTile(const PanelSnapshot& s, const Config&)
{
    return tile(QStringLiteral("sun.max.fill"), QStringLiteral("Keep Awake"), s.keepAwake.statusText,
                s.keepAwake.isActive ? QStringLiteral("The computer will not sleep.")
                                     : QStringLiteral("The computer sleeps as usual."),
                std::nullopt);
}

} // namespace

QString pressureLevelName(MemoryPressureLevel level)
{
    switch (level) {
    case MemoryPressureLevel::normal: return QStringLiteral("Normal");
    case MemoryPressureLevel::warning: return QStringLiteral("Warning");
    case MemoryPressureLevel::critical: return QStringLiteral("Critical");
    }
    return {};
}

PanelRow processRow(const ProcessSample& process, const QString& figure)
{
    Row row;
    row.kind = Kind::process;
    row.label = process.name;
    row.value = figure;
    row.process = process;
    row.canQuit = ProcessActions::canForceQuit(process.pid, process.name);
    return row;
}

const std::vector<Entry>& registry()
{
    static const std::vector<Entry> entries{
        {ModuleKind::combined, overview}, {ModuleKind::cpu, cpu},         {ModuleKind::gpu, gpu},
        {ModuleKind::memory, memory},     {ModuleKind::disks, disks},     {ModuleKind::network, network},
        {ModuleKind::sensors, sensors},   {ModuleKind::battery, battery}, {ModuleKind::weather, weather},
        {ModuleKind::astronomy, astronomy}, {ModuleKind::time, time},
    };
    return entries;
}

bool hasPanel(ModuleKind kind)
{
    const auto& entries = registry();
    return std::any_of(entries.begin(), entries.end(), [kind](const Entry& e) { return e.kind == kind; });
}

std::optional<PanelModel> build(ModuleKind kind, const PanelSnapshot& snapshot, const Config& config)
{
    for (const Entry& entry : registry())
        if (entry.kind == kind)
            return entry.build(snapshot, config);
    return std::nullopt;
}

const std::vector<Tile>& tiles()
{
    static const std::vector<Tile> list{
        {OverviewItem::cpu, cpuTile},         {OverviewItem::gpu, gpuTile},
        {OverviewItem::memory, memoryTile},   {OverviewItem::network, networkTile},
        {OverviewItem::disk, diskTile},       {OverviewItem::sensors, sensorsTile},
        {OverviewItem::battery, batteryTile}, {OverviewItem::devices, devicesTile},
        {OverviewItem::keepAwake, keepAwakeTile}, {OverviewItem::weather, weatherTile},
        {OverviewItem::worldClocks, worldClocksTile}, {OverviewItem::nextEvent, nextEventTile},
    };
    return list;
}

const std::vector<TilePanel>& tilePanels()
{
    static const std::vector<TilePanel> list{{OverviewItem::devices, devices}};
    return list;
}

std::optional<PanelModel> buildTilePanel(OverviewItem item, const PanelSnapshot& snapshot, const Config& config)
{
    for (const TilePanel& panel : tilePanels())
        if (panel.item == item)
            return panel.build(snapshot, config);
    return std::nullopt;
}

PanelModel overview(const PanelSnapshot& s, const Config& config)
{
    PanelModel model{ModuleKind::combined, QStringLiteral("Overview"), {}, {}, {}, {}};
    PanelSection insightSection;
    PanelSection tileSection;
    for (OverviewItem item : config.overviewItems()) {
        if (!config.showsInOverview(item))
            continue;
        if (item == OverviewItem::insight) {
            const PartColor color = s.insight.severity == Insight::Severity::critical  ? PartColor::red
                                    : s.insight.severity == Insight::Severity::warning ? PartColor::orange
                                                                                       : PartColor::foreground;
            insightSection.rows.push_back(PanelRows::link(s.insight.text, color, s.insight.module));
            continue;
        }
        for (const Tile& t : tiles())
            if (t.item == item)
                if (std::optional<Row> row = t.build(s, config))
                    tileSection.rows.push_back(*row);
    }
    if (!insightSection.rows.empty())
        model.sections.push_back(insightSection);
    model.sections.push_back(tileSection);
    return model;
}

PanelModel cpu(const PanelSnapshot& s, const Config&)
{
    const auto& c = s.cpu;
    PanelModel model{ModuleKind::cpu, QStringLiteral("CPU"), c.brand, Fmt::percent(c.user + c.system), {}, {}};

    PanelSection usage{{}, {}};
    usage.rows.push_back(trail(QStringLiteral("User ") + Fmt::percent(c.user) + separator + QStringLiteral("System ") +
                                   Fmt::percent(c.system),
                               {{QStringLiteral("User"), c.userTrail, PartColor::blue},
                                {QStringLiteral("System"), c.systemTrail, PartColor::red}},
                               Row::TrailStyle::stacked, 100));
    usage.rows.push_back(value(QStringLiteral("User"), Fmt::percent(c.user)));
    usage.rows.push_back(value(QStringLiteral("System"), Fmt::percent(c.system)));
    usage.rows.push_back(value(QStringLiteral("Idle"), Fmt::percent(std::max(0.0, 100 - c.user - c.system))));
    model.sections.push_back(usage);

    if (!c.cores.empty()) {
        const bool classes = c.efficiencyCount > 0 && c.performanceCount > 0;
        Row grid;
        grid.kind = Kind::columns;
        grid.label = QStringLiteral("Per core");
        grid.value = classes ? QString::number(c.performanceCount) + QStringLiteral(" performance, ") +
                                   QString::number(c.efficiencyCount) + QStringLiteral(" efficiency")
                             : QString::number(c.cores.size()) + QStringLiteral(" logical");
        for (const CPUMonitor::Core& core : c.cores)
            grid.segments.push_back({(classes ? (core.isEfficiency ? QStringLiteral("E") : QStringLiteral("P"))
                                              : QString()) +
                                         QString::number(core.index),
                                     Fmt::percent(core.user + core.system),
                                     std::clamp((core.user + core.system) / 100.0, 0.0, 1.0),
                                     core.isEfficiency ? PartColor::green : PartColor::blue});
        model.sections.push_back({QStringLiteral("Cores"), {grid}});
    }

    PanelSection load{QStringLiteral("Load"), {}};
    load.rows.push_back(value(QStringLiteral("Load average"), Fmt::number(c.loadAverage[0], 2) + QStringLiteral("  ") +
                                                               Fmt::number(c.loadAverage[1], 2) + QStringLiteral("  ") +
                                                               Fmt::number(c.loadAverage[2], 2),
                              QStringLiteral("1, 5 and 15 minutes")));
    load.rows.push_back(trail({}, {{QStringLiteral("Load"), c.loadTrail, PartColor::purple}}));
    load.rows.push_back(value(QStringLiteral("Uptime"), Fmt::duration(std::max(0.0, c.uptime))));
    QString counts;
    if (c.physicalCount > 0)
        counts = QString::number(c.physicalCount) + QStringLiteral(" physical, ");
    counts += QString::number(c.logicalCount > 0 ? c.logicalCount : int(c.cores.size())) + QStringLiteral(" logical");
    load.rows.push_back(value(QStringLiteral("Cores"), counts));
    model.sections.push_back(load);

    model.sections.push_back(processSection(s.topByCpu, [](const ProcessSample& p) {
        return Fmt::percent(p.cpu);
    }));
    model.history = {{QStringLiteral("CPU"), {HistoryMetric::cpuUser, HistoryMetric::cpuSystem}, GraphUnit::percent, true}};
    return model;
}

PanelModel gpu(const PanelSnapshot& s, const Config&)
{
    PanelModel model{ModuleKind::gpu, QStringLiteral("GPU"), {}, {}, {}, {}};
    if (s.gpus.empty()) {
        model.sections.push_back({{}, {note(QStringLiteral("No graphics processor reports its load on this computer."))}});
        return model;
    }
    model.headline = Fmt::percent(s.gpus.front().utilization);
    for (const PanelSnapshot::Gpu& g : s.gpus) {
        PanelSection section{g.name, {}};
        section.rows.push_back(bar(QStringLiteral("Utilization"), Fmt::percent(g.utilization), g.utilization / 100,
                                   PartColor::purple));
        if (g.memoryUsed)
            section.rows.push_back(value(QStringLiteral("Memory used"), memoryBytes(*g.memoryUsed)));
        if (g.cores)
            section.rows.push_back(value(QStringLiteral("Cores"), QString::number(*g.cores)));
        section.rows.push_back(trail({}, {{QStringLiteral("Utilization"), g.trail, PartColor::purple}},
                                     Row::TrailStyle::line, 100));
        model.sections.push_back(section);
    }
    model.history = {{QStringLiteral("GPU"), {HistoryMetric::gpu}, GraphUnit::percent, false}};
    return model;
}

PanelModel memory(const PanelSnapshot& s, const Config&)
{
    const auto& m = s.memory;
    PanelModel model{ModuleKind::memory, QStringLiteral("Memory"), memoryBytes(m.total) + QStringLiteral(" installed"),
                     Fmt::percent(m.usedPercent()), {}, {}};

    Row breakdown = bar(QStringLiteral("Used"),
                        memoryBytes(m.app + m.wired + m.compressed) + QStringLiteral(" of ") + memoryBytes(m.total), 0);
    const double total = m.total > 0 ? m.total : 1;
    const struct {
        const char* label;
        double bytes;
        PartColor color;
    } parts[] = {{"App", m.app, PartColor::blue},        {"Wired", m.wired, PartColor::orange},
                 {"Compressed", m.compressed, PartColor::purple}, {"Cached", m.cached, PartColor::green},
                 {"Free", m.free, PartColor::foreground}};
    for (const auto& part : parts)
        breakdown.segments.push_back({QString::fromLatin1(part.label), memoryBytes(part.bytes),
                                      std::clamp(part.bytes / total, 0.0, 1.0), part.color});
    PanelSection usage{{}, {breakdown}};
    model.sections.push_back(usage);

    PanelSection pressure{QStringLiteral("Pressure"), {}};
    pressure.rows.push_back(bar(pressureLevelName(m.pressureLevel), Fmt::percent(m.pressure), m.pressure / 100,
                                MenuBarContent::pressureColor(m.pressureLevel)));
    pressure.rows.push_back(trail({}, {{QStringLiteral("Pressure"), m.pressureTrail, MenuBarContent::pressureColor(m.pressureLevel)}},
                                  Row::TrailStyle::line, 100));
    model.sections.push_back(pressure);

    PanelSection paging{QStringLiteral("Swap"), {}};
    if (m.swapTotal > 0)
        paging.rows.push_back(bar(QStringLiteral("Swap used"),
                                  memoryBytes(m.swapUsed) + QStringLiteral(" of ") + memoryBytes(m.swapTotal),
                                  m.swapUsed / m.swapTotal, PartColor::orange));
    else
        paging.rows.push_back(value(QStringLiteral("Swap"), QStringLiteral("None")));
    paging.rows.push_back(value(QStringLiteral("Page ins"), Fmt::rate(m.pageInsRate, false)));
    paging.rows.push_back(value(QStringLiteral("Page outs"), Fmt::rate(m.pageOutsRate, false)));
    model.sections.push_back(paging);

    model.sections.push_back(processSection(s.topByMemory, [](const ProcessSample& p) {
        return memoryBytes(p.memory);
    }));
    model.history = {{QStringLiteral("Memory"), {HistoryMetric::memoryPressure, HistoryMetric::memoryUsed},
                      GraphUnit::percent, false}};
    return model;
}

PanelModel disks(const PanelSnapshot& s, const Config&)
{
    const auto& d = s.disks;
    PanelModel model{ModuleKind::disks, QStringLiteral("Disks"), {}, {}, {}, {}};
    if (!d.volumes.empty())
        model.headline = Fmt::percent(d.volumes.front().usedPercent());

    PanelSection volumes{QStringLiteral("Volumes"), {}};
    for (const Volume& v : d.volumes) {
        Row row = bar(v.name, diskBytes(v.available) + QStringLiteral(" free of ") + diskBytes(v.total),
                      v.usedPercent() / 100, v.usedPercent() >= 90 ? PartColor::red : PartColor::blue);
        row.detail = v.url + (v.isRoot ? QStringLiteral(" · Startup") : QString()) +
                     (v.isRemovable ? QStringLiteral(" · Removable") : QString()) +
                     (v.isLocal ? QString() : QStringLiteral(" · Network"));
        volumes.rows.push_back(row);
    }
    if (d.volumes.empty())
        volumes.rows.push_back(note(QStringLiteral("No volumes found.")));
    model.sections.push_back(volumes);

    PanelSection activity{QStringLiteral("Activity"), {}};
    activity.rows.push_back(trail(QStringLiteral("Read ") + Fmt::rate(d.readRate, false) + separator +
                                      QStringLiteral("Write ") + Fmt::rate(d.writeRate, false),
                                  {{QStringLiteral("Read"), d.readTrail, PartColor::blue},
                                   {QStringLiteral("Write"), d.writeTrail, PartColor::orange}},
                                  Row::TrailStyle::mirrored));
    model.sections.push_back(activity);

    model.sections.push_back(processSection(s.topByDisk, [](const ProcessSample& p) {
        return Fmt::rate(p.diskTotal(), false);
    }));
    model.history = {{QStringLiteral("Disk"), {HistoryMetric::diskRead, HistoryMetric::diskWrite},
                      GraphUnit::bytesPerSecond, false}};
    return model;
}

// A button to run a test (Cancel, with the seconds so far, while one runs), why the last one failed,
// the newest result in full and the earlier ones a line each.
PanelSection speedTestSection(const PanelSnapshot::SpeedTests& tests, double now, const Config& config)
{
    using State = SpeedTest::State::Kind;
    const bool bits = config.bandwidthBits;
    PanelSection section{QStringLiteral("Speed Test"), {}};
    if (tests.state.kind == State::running) {
        const double elapsed = std::max(0.0, now - double(tests.state.started.toMSecsSinceEpoch()) / 1000.0);
        section.rows.push_back(command(QStringLiteral("Testing… %1 s").arg(int(elapsed)), QStringLiteral("Cancel"),
                                       PanelContent::cancelSpeedTest));
    } else {
        section.rows.push_back(command(QStringLiteral("Internet speed"),
                                       QStringLiteral("Run Speed Test"), PanelContent::runSpeedTest));
    }
    if (tests.state.kind == State::failed)
        section.rows.push_back(note(tests.state.message));

    const auto rates = [bits](const SpeedTestResult& r) {
        return QStringLiteral("↓ ") + Fmt::rate(r.download, bits) + QStringLiteral("   ↑ ") + Fmt::rate(r.upload, bits);
    };
    const auto quality = [](const SpeedTestResult& r) {
        QStringList about;
        if (r.responsiveness)
            about << QStringLiteral("%1 RPM (%2)").arg(Fmt::number(*r.responsiveness, 0),
                                                      NetworkQualityMethod::responsivenessGrade(*r.responsiveness));
        if (r.baseRTT)
            about << QStringLiteral("Base RTT %1 ms").arg(Fmt::number(*r.baseRTT, 0));
        return about.join(separator);
    };
    const QTimeZone zone = QTimeZone::systemTimeZone();
    if (!tests.results.empty()) {
        const SpeedTestResult& last = tests.results.front();
        section.rows.push_back(value(QStringLiteral("Download"), Fmt::rate(last.download, bits)));
        section.rows.push_back(value(QStringLiteral("Upload"), Fmt::rate(last.upload, bits)));
        if (last.responsiveness)
            section.rows.push_back(value(QStringLiteral("Responsiveness"),
                                         QStringLiteral("%1 RPM").arg(Fmt::number(*last.responsiveness, 0)),
                                         NetworkQualityMethod::responsivenessGrade(*last.responsiveness)));
        if (last.baseRTT)
            section.rows.push_back(value(QStringLiteral("Base RTT"), Fmt::number(*last.baseRTT, 0) + QStringLiteral(" ms")));
        section.rows.push_back(note(QStringLiteral("Tested ") + Fmt::dateTime(last.date, zone) +
                                    (last.interface ? QStringLiteral(" on ") + *last.interface : QString())));
    }
    for (size_t i = 1; i < tests.results.size(); ++i)
        section.rows.push_back(value(Fmt::dateTime(tests.results[i].date, zone), rates(tests.results[i]),
                                     quality(tests.results[i])));
    return section;
}

PanelModel network(const PanelSnapshot& s, const Config& config)
{
    const auto& n = s.network;
    const bool bits = config.bandwidthBits;
    PanelModel model{ModuleKind::network, QStringLiteral("Network"), internetStatus(n), {}, {}, {}};

    PanelSection rates{{}, {}};
    rates.rows.push_back(trail(QStringLiteral("↑ ") + Fmt::rate(n.upload, bits) + QStringLiteral("   ↓ ") +
                                   Fmt::rate(n.download, bits),
                               {{QStringLiteral("Upload"), n.uploadTrail, PartColor::orange},
                                {QStringLiteral("Download"), n.downloadTrail, PartColor::blue}},
                               Row::TrailStyle::mirrored));
    rates.rows.push_back(value(QStringLiteral("This session"), QStringLiteral("↑ ") + Fmt::bytes(double(n.sessionUp), 1000) +
                                                                 QStringLiteral("   ↓ ") +
                                                                 Fmt::bytes(double(n.sessionDown), 1000)));
    model.sections.push_back(rates);

    PanelSection internet{QStringLiteral("Internet"), {}};
    internet.rows.push_back(value(QStringLiteral("Status"), internetStatus(n)));
    if (n.pingMs)
        internet.rows.push_back(value(QStringLiteral("Ping"), Fmt::number(*n.pingMs, 0) + QStringLiteral(" ms")));
    if (!n.pingTrail.empty())
        internet.rows.push_back(trail({}, {{QStringLiteral("Ping"), n.pingTrail, PartColor::green}}));
    if (n.publicIP) {
        Row ip = value(QStringLiteral("Public IP"), *n.publicIP, QStringLiteral("Click to copy"));
        ip.kind = Kind::copy;
        internet.rows.push_back(ip);
    }
    if (n.primaryInterface)
        internet.rows.push_back(value(QStringLiteral("Interface"), interfaceName(n, *n.primaryInterface)));
    if (n.router)
        internet.rows.push_back(value(QStringLiteral("Router"), *n.router));
    if (!n.dns.isEmpty())
        internet.rows.push_back(value(QStringLiteral("DNS"), n.dns.first(), n.dns.mid(1).join(QStringLiteral(", "))));
    if (!n.vpnInterfaces.isEmpty())
        internet.rows.push_back(value(QStringLiteral("VPN"), n.vpnInterfaces.join(QStringLiteral(", "))));
    model.sections.push_back(internet);

    if (n.wifi) {
        const WiFiInfo& w = *n.wifi;
        PanelSection wifi{QStringLiteral("Wi-Fi"), {}};
        wifi.rows.push_back(value(QStringLiteral("Network"), w.ssid.value_or(QStringLiteral("—"))));
        wifi.rows.push_back(value(QStringLiteral("Signal"), QString::number(w.rssi) + QStringLiteral(" dBm"),
                                  w.noise != 0 ? QStringLiteral("Noise ") + QString::number(w.noise) +
                                                     QStringLiteral(" dBm")
                                               : QString()));
        if (w.channel) {
            QStringList about;
            if (w.band)
                about << *w.band;
            if (w.width)
                about << *w.width;
            wifi.rows.push_back(value(QStringLiteral("Channel"), QString::number(*w.channel), about.join(separator)));
        }
        if (w.transmitRate > 0)
            wifi.rows.push_back(value(QStringLiteral("Transmit rate"), Fmt::number(w.transmitRate, 0) +
                                                                         QStringLiteral(" Mb/s")));
        wifi.rows.push_back(value(QStringLiteral("Standard"), w.phyMode));
        wifi.rows.push_back(value(QStringLiteral("Security"), w.security));
        model.sections.push_back(wifi);
    }

    PanelSection interfaces{QStringLiteral("Interfaces"), {}};
    for (const InterfaceInfo& info : n.interfaces) {
        QStringList rest = info.ipv4.mid(1) + info.ipv6;
        if (info.mac)
            rest << *info.mac;
        const QString first = !info.ipv4.isEmpty() ? info.ipv4.first()
                                                   : (!info.ipv6.isEmpty() ? info.ipv6.first() : QStringLiteral("—"));
        if (info.ipv4.isEmpty() && !info.ipv6.isEmpty())
            rest.removeFirst();
        interfaces.rows.push_back(value(interfaceName(n, info.bsdName), first, rest.join(QStringLiteral("\n"))));
    }
    if (!interfaces.rows.empty())
        model.sections.push_back(interfaces);
    model.sections.push_back(speedTestSection(s.speedTests, s.now, config));

    model.history = {{QStringLiteral("Network"), {HistoryMetric::download, HistoryMetric::upload},
                      GraphUnit::bytesPerSecond, false}};
    return model;
}

PanelModel sensors(const PanelSnapshot& s, const Config& config)
{
    const auto& sn = s.sensors;
    PanelModel model{ModuleKind::sensors, QStringLiteral("Sensors"), {}, temperature(config, sn.menubarTemperature),
                     {}, {}};

    PanelSection temperatures{QStringLiteral("Temperatures"), {}};
    if (config.sensorMode == SensorMode::simple) {
        for (const auto& [group, summary] : sn.summaries)
            temperatures.rows.push_back(value(sensorGroupName(group), temperature(config, summary.maximum),
                                              QStringLiteral("Average ") + temperature(config, summary.average)));
    } else {
        for (const Sensor& sensor : sn.sensors) {
            if (sensor.kind != SensorKind::temperature)
                continue;
            Row row = value(sensor.name, sensorValue(sensor, config),
                            QStringLiteral("Peak ") + temperature(config, sensor.peak));
            if (const auto t = sn.trails.find(sensor.key); t != sn.trails.end())
                row.series = {{sensor.name, t->second, PartColor::orange}};
            temperatures.rows.push_back(row);
        }
    }
    if (temperatures.rows.empty())
        temperatures.rows.push_back(note(QStringLiteral("No temperature sensors found.")));
    model.sections.push_back(temperatures);

    if (!sn.fans.empty()) {
        PanelSection fans{QStringLiteral("Fans"), {}};
        for (const Fan& fan : sn.fans) {
            Row row = bar(QStringLiteral("Fan ") + QString::number(fan.index + 1), rpm(fan.rpm), fan.shareOfRange(),
                          PartColor::blue);
            if (fan.maximum > fan.minimum)
                row.detail = rpm(fan.minimum) + QStringLiteral(" – ") + rpm(fan.maximum);
            fans.rows.push_back(row);
        }
        fans.rows.push_back(trail({}, {{QStringLiteral("Fastest fan"), sn.fanTrail, PartColor::blue}}));
        model.sections.push_back(fans);
    }

    PanelSection power{QStringLiteral("Power"), {}};
    for (const Sensor& sensor : sn.sensors)
        if (sensor.kind == SensorKind::power ||
            (config.sensorMode == SensorMode::detailed && sensor.kind != SensorKind::temperature))
            power.rows.push_back(value(sensor.name, sensorValue(sensor, config)));
    if (!power.rows.empty())
        model.sections.push_back(power);

    Row chooser = value(QStringLiteral("Shown in menu bar"), QStringLiteral("Automatic"));
    chooser.kind = Kind::choice;
    chooser.choices.push_back({QString(), QStringLiteral("Automatic")});
    for (const Sensor& sensor : sn.sensors) {
        if (sensor.kind != SensorKind::temperature)
            continue;
        chooser.choices.push_back({sensor.key, sensor.name});
        if (config.menubarSensorKey == sensor.key) {
            chooser.chosen = sensor.key;
            chooser.value = sensor.name;
        }
    }
    model.sections.push_back({{}, {chooser}});

    model.history = {{QStringLiteral("Temperature"), {HistoryMetric::temperature}, GraphUnit::temperature, false}};
    if (!sn.fans.empty())
        model.history.push_back({QStringLiteral("Fan"), {HistoryMetric::fan}, GraphUnit::rpm, false});
    if (!power.rows.empty() || s.battery.present)
        model.history.push_back({QStringLiteral("Power"), {HistoryMetric::power}, GraphUnit::watts, false});
    return model;
}

PanelModel battery(const PanelSnapshot& s, const Config& config)
{
    const auto& b = s.battery;
    PanelModel model{ModuleKind::battery, QStringLiteral("Battery"), b.stateDescription, {}, {}, {}};
    if (!b.present) {
        model.sections.push_back({{}, {note(QStringLiteral("This computer has no battery."))}});
        return model;
    }
    model.headline = Fmt::percent(b.percent);

    PanelSection charge{{}, {}};
    Row level = bar(QStringLiteral("Charge"), Fmt::percent(b.percent), b.percent / 100, batteryColor(b));
    charge.rows.push_back(level);
    if (b.minutesRemaining && *b.minutesRemaining > 0)
        charge.rows.push_back(value(b.isCharging ? QStringLiteral("Time to full") : QStringLiteral("Time remaining"),
                                    minutes(*b.minutesRemaining)));
    charge.rows.push_back(trail({}, {{QStringLiteral("Charge"), b.trail, PartColor::green}}, Row::TrailStyle::line, 100));
    model.sections.push_back(charge);

    PanelSection health{QStringLiteral("Health"), {}};
    if (b.healthPercent || b.condition)
        health.rows.push_back(value(QStringLiteral("Health"),
                                    b.healthPercent ? Fmt::percent(*b.healthPercent) : QStringLiteral("—"),
                                    b.condition.value_or(QString())));
    if (b.cycleCount)
        health.rows.push_back(value(QStringLiteral("Cycle count"), QString::number(*b.cycleCount)));
    if (b.maxCapacity && b.designCapacity)
        health.rows.push_back(value(QStringLiteral("Capacity"), QString::number(*b.maxCapacity) + QStringLiteral(" of ") +
                                                                  QString::number(*b.designCapacity) +
                                                                  QStringLiteral(" mAh")));
    if (b.temperature)
        health.rows.push_back(value(QStringLiteral("Temperature"), temperature(config, b.temperature)));
    if (!health.rows.empty())
        model.sections.push_back(health);

    PanelSection electrical{QStringLiteral("Power"), {}};
    if (b.voltage)
        electrical.rows.push_back(value(QStringLiteral("Voltage"), Fmt::number(*b.voltage, 2) + QStringLiteral(" V")));
    if (b.amperage)
        electrical.rows.push_back(value(QStringLiteral("Current"), Fmt::number(*b.amperage, 2) + QStringLiteral(" A")));
    if (b.power)
        electrical.rows.push_back(value(QStringLiteral("Power"), watts(*b.power)));
    if (b.onAC) {
        QString adapter = b.adapterWatts ? QString::number(*b.adapterWatts) + QStringLiteral(" W") : QStringLiteral("Connected");
        electrical.rows.push_back(value(QStringLiteral("Adapter"), adapter, b.adapterName.value_or(QString())));
    }
    electrical.rows.push_back(value(QStringLiteral("Low Power Mode"), b.lowPowerMode ? QStringLiteral("On") : QStringLiteral("Off")));
    model.sections.push_back(electrical);

    if (!b.accessories.empty()) {
        PanelSection accessories{QStringLiteral("Accessories"), {}};
        for (const BluetoothBattery& a : b.accessories)
            accessories.rows.push_back(bar(a.name, Fmt::percent(a.percent), a.percent / 100.0,
                                           a.percent < 15 ? PartColor::red : PartColor::green));
        model.sections.push_back(accessories);
    }
    model.history = {{QStringLiteral("Charge"), {HistoryMetric::battery}, GraphUnit::percent, false},
                     {QStringLiteral("Power"), {HistoryMetric::power}, GraphUnit::watts, false}};
    return model;
}

} // namespace pulsebar::PanelContent
