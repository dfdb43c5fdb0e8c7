#include "insight/insight_engine.h"

#include "alerts/notifier.h"
#include "core/fmt.h"
#include "hub/hub.h"

#include <QSet>

#include <algorithm>
#include <cmath>

namespace pulsebar {

namespace {

constexpr double memorySeconds = 30;
constexpr double cpuSeconds = 120;
constexpr double diskSeconds = 30;
constexpr double batterySeconds = 120;
constexpr double networkSeconds = 60;
constexpr double notifyEverySeconds = 1800;

constexpr double cpuTotalPercent = 70.0;
constexpr double processPercent = 80.0;
constexpr double diskBytesPerSecond = 50'000'000;
constexpr double networkBytesPerSecond = 10'000'000;
constexpr double drainWatts = 20.0;
constexpr double fullPercent = 95.0;
constexpr double fanSharePercent = 40.0;
constexpr double hotCelsius = 90.0;

// The first process with the largest value of `field`: a stable sort's first entry.
template <typename Field>
const ProcessSample* topProcess(const std::vector<ProcessSample>& processes, Field field)
{
    const ProcessSample* best = nullptr;
    for (const ProcessSample& p : processes)
        if (!best || field(p) > field(*best))
            best = &p;
    return best;
}

const ProcessSample* findProcess(const std::vector<ProcessSample>& processes, int32_t pid)
{
    const auto it = std::find_if(processes.begin(), processes.end(), [&](const ProcessSample& p) { return p.pid == pid; });
    return it == processes.end() ? nullptr : &*it;
}

// How far the busiest fan has spun up between its minimum and maximum, in percent.
double largestFanShare(const std::vector<Fan>& fans)
{
    double largest = 0;
    for (const Fan& fan : fans) {
        double share = 0;
        if (fan.minimum < fan.maximum)
            share = std::min((fan.rpm - fan.minimum) / (fan.maximum - fan.minimum) * 100.0, 100.0);
        largest = std::max(largest, std::max(share, 0.0));
    }
    return largest;
}

QString consequenceSuffix(const HubSnapshot& state)
{
    if (largestFanShare(state.fans) >= fanSharePercent)
        return QStringLiteral(" — fans are up.");
    if (state.cpuTemperature && *state.cpuTemperature >= hotCelsius)
        return QStringLiteral(" — running hot.");
    return QStringLiteral(".");
}

Insight cpuProcessInsight(const ProcessSample& process, double duration, const HubSnapshot& state)
{
    return {Insight::Kind::cpu,
            process.name + " has used " + Fmt::percent(process.cpu) + " CPU for " + InsightEngine::minutes(duration) +
                consequenceSuffix(state),
            Insight::Severity::warning, ModuleKind::cpu, process.pid};
}

std::optional<Insight> storageInsight(const HubSnapshot& state)
{
    if (!state.startupVolume)
        return std::nullopt;
    const std::optional<double> used = state.startupVolume->usedPercent();
    if (!used || *used < fullPercent)
        return std::nullopt;
    return Insight{Insight::Kind::storage,
                   "Startup disk is almost full — " + Fmt::bytes(state.startupVolume->available, 1000) + " free.",
                   Insight::Severity::critical, ModuleKind::disks, std::nullopt};
}

Insight diskInsight(const HubSnapshot& state)
{
    const bool writing = state.diskReadRate <= state.diskWriteRate;
    const QString verb = writing ? QStringLiteral("writing") : QStringLiteral("reading");
    const QString rate = Fmt::rate(writing ? state.diskWriteRate : state.diskReadRate, false);
    const ProcessSample* process = writing ? topProcess(state.processes, [](const ProcessSample& p) { return p.diskWrite; })
                                         : topProcess(state.processes, [](const ProcessSample& p) { return p.diskRead; });
    Insight insight{Insight::Kind::disk, {}, Insight::Severity::info, ModuleKind::disks, std::nullopt};
    if (process) {
        insight.text = "Disk is busy — " + process->name + " is " + verb + " " + rate + ".";
        insight.pid = process->pid;
    } else {
        insight.text = "Disk is busy — " + verb + " " + rate + ".";
    }
    return insight;
}

Insight batteryInsight(const HubSnapshot& state)
{
    QString text = QStringLiteral("Battery is draining fast");
    if (const auto watts = state.batteryWatts())
        text += " at " + Fmt::number(*watts, 1) + " W";
    if (state.minutesRemaining) {
        const int minutes = *state.minutesRemaining;
        text += QStringLiteral(" — about %1:%2 left").arg(minutes / 60).arg(minutes % 60, 2, 10, QLatin1Char('0'));
    }
    text += '.';
    return {Insight::Kind::battery, text, Insight::Severity::warning, ModuleKind::battery, std::nullopt};
}

Insight networkInsight(const HubSnapshot& state, bool bits)
{
    const QString text = state.upload <= state.download
                             ? "Network is busy — downloading " + Fmt::rate(state.download, bits) + "."
                             : "Network is busy — uploading " + Fmt::rate(state.upload, bits) + ".";
    return {Insight::Kind::network, text, Insight::Severity::info, ModuleKind::network, std::nullopt};
}

} // namespace

void InsightEngine::Sustained::update(bool holds, double now)
{
    if (holds) {
        if (!since)
            since = now;
        misses = 0;
        return;
    }
    if (!since)
        return;
    if (++misses >= 4) {
        since.reset();
        misses = 0;
    }
}

std::optional<double> InsightEngine::Sustained::duration(double now) const
{
    if (!since)
        return std::nullopt;
    return now - *since;
}

bool InsightEngine::Sustained::heldFor(double seconds, double now) const
{
    const auto held = duration(now);
    return held && *held >= seconds;
}

InsightEngine::InsightEngine(const Hub& hub) : InsightEngine(hub, Notifier::shared()) {}

InsightEngine::InsightEngine(const Hub& hub, Notifier& notifier) : m_hub(hub), m_notifier(notifier) {}

void InsightEngine::evaluate(double now)
{
    evaluate(HubSnapshot::of(m_hub), m_hub.settings().config(), now);
}

void InsightEngine::evaluate(const HubSnapshot& state, const Config& config, double now)
{
    updateConditions(state, now);
    const Insight picked = pick(state, config, now);
    notifyIfDue(picked, config, now);
    m_current = picked;
}

void InsightEngine::updateConditions(const HubSnapshot& state, double now)
{
    m_memoryPressure.update(state.memoryPressureLevel != MemoryPressureLevel::normal, now);
    m_cpuTotal.update(state.cpuTotal() >= cpuTotalPercent, now);
    m_diskBusy.update(state.diskReadRate + state.diskWriteRate >= diskBytesPerSecond, now);
    m_networkBusy.update(std::max(state.download, state.upload) >= networkBytesPerSecond, now);
    const auto watts = state.batteryWatts();
    m_batteryDrain.update(state.batteryPresent && !state.onAC && watts && *watts >= drainWatts, now);

    QSet<int32_t> busy;
    for (const ProcessSample& p : state.processes)
        if (p.cpu >= processPercent)
            busy.insert(p.pid);
    for (const int32_t pid : busy)
        m_processCPU[pid].update(true, now);
    for (auto it = m_processCPU.begin(); it != m_processCPU.end();) {
        if (!busy.contains(it->first))
            it->second.update(false, now);
        it = it->second.since ? std::next(it) : m_processCPU.erase(it);
    }
}

Insight InsightEngine::pick(const HubSnapshot& state, const Config& config, double now) const
{
    if (auto insight = memoryInsight(state, now))
        return *insight;
    if (auto insight = cpuInsight(state, now))
        return *insight;
    // A nearly full disk outranks activity, but not a process that is heating the computer.
    if (auto insight = storageInsight(state))
        return *insight;
    if (m_diskBusy.heldFor(diskSeconds, now))
        return diskInsight(state);
    if (m_batteryDrain.heldFor(batterySeconds, now))
        return batteryInsight(state);
    if (m_networkBusy.heldFor(networkSeconds, now))
        return networkInsight(state, config.bandwidthBits);
    return Insight::quiet();
}

std::optional<Insight> InsightEngine::memoryInsight(const HubSnapshot& state, double now) const
{
    if (!m_memoryPressure.heldFor(memorySeconds, now))
        return std::nullopt;
    const ProcessSample* process = topProcess(state.processes, [](const ProcessSample& p) { return p.memory; });
    if (!process)
        return std::nullopt;
    const bool critical = state.memoryPressureLevel == MemoryPressureLevel::critical;
    return Insight{Insight::Kind::memory,
                   "Memory pressure is " + QString(critical ? "critical" : "high") + " — " + process->name +
                       " is using " + Fmt::bytes(process->memory, 1024) + ".",
                   critical ? Insight::Severity::critical : Insight::Severity::warning, ModuleKind::memory,
                   process->pid};
}

std::optional<Insight> InsightEngine::cpuInsight(const HubSnapshot& state, double now) const
{
    // One process that has kept a core busy longest.
    std::optional<std::pair<int32_t, double>> longest;
    for (const auto& [pid, sustained] : m_processCPU) {
        const auto held = sustained.duration(now);
        if (held && *held >= cpuSeconds && (!longest || *held > longest->second))
            longest = {pid, *held};
    }
    if (longest) {
        if (const ProcessSample* process = findProcess(state.processes, longest->first))
            return cpuProcessInsight(*process, longest->second, state);
    }

    // Many processes together: name the busiest one now.
    if (!m_cpuTotal.heldFor(cpuSeconds, now))
        return std::nullopt;
    const ProcessSample* process = topProcess(state.processes, [](const ProcessSample& p) { return p.cpu; });
    if (!process)
        return std::nullopt;
    std::optional<double> held;
    if (const auto own = m_processCPU.find(process->pid); own != m_processCPU.end())
        held = own->second.duration(now);
    return cpuProcessInsight(*process, held.value_or(*m_cpuTotal.duration(now)), state);
}

void InsightEngine::notifyIfDue(const Insight& picked, const Config& config, double now)
{
    if (picked.kind == m_current.kind || picked.kind == Insight::Kind::quiet ||
        picked.severity == Insight::Severity::info || !config.insightNotifications)
        return;
    // At most one notification of each kind every 30 minutes.
    if (const auto last = m_lastNotified.find(picked.kind);
        last != m_lastNotified.end() && now - last->second < notifyEverySeconds)
        return;
    m_lastNotified[picked.kind] = now;
    m_notifier.post(QStringLiteral("Pulsebar"), picked.text);
}

QString InsightEngine::minutes(double seconds)
{
    const auto m = static_cast<int64_t>(seconds / 60);
    if (m < 60)
        return QString::number(std::max<int64_t>(m, 1)) + " min";
    if (m < 120)
        return "1 h " + QString::number(m - 60) + " min";
    return QString::number(m / 60) + " h";
}

} // namespace pulsebar
