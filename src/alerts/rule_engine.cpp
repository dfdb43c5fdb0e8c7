#include "alerts/rule_engine.h"

#include "alerts/notifier.h"
#include "core/fmt.h"
#include "hub/hub.h"

#include <cmath>

namespace pulsebar {

namespace {

// The first ticks after launch read counters that have no previous sample yet.
constexpr double startupSilenceSeconds = 5.0;

bool holds(const Rule& rule, std::optional<double> value)
{
    if (!value)
        return false;
    return rule.comparison == RuleComparison::above ? *value > rule.threshold : *value < rule.threshold;
}

} // namespace

RuleEngine::RuleEngine(const Hub& hub, double startedAt) : RuleEngine(hub, startedAt, Notifier::shared()) {}

RuleEngine::RuleEngine(const Hub& hub, double startedAt, Notifier& notifier)
    : m_hub(hub), m_notifier(notifier), m_startedAt(startedAt)
{
}

void RuleEngine::evaluate(double now)
{
    evaluate(HubSnapshot::of(m_hub), m_hub.settings().config(), now);
}

void RuleEngine::evaluate(const HubSnapshot& state, const Config& config, double now)
{
    if (now - m_startedAt <= startupSilenceSeconds)
        return;
    evaluateRules(state, config, now);
    evaluateEvents(state, config);
}

void RuleEngine::evaluateRules(const HubSnapshot& state, const Config& config, double now)
{
    for (const Rule& rule : config.rules) {
        if (!rule.enabled) {
            // A switched-off rule starts a fresh episode when it is switched on again.
            m_conditionSince.erase(rule.id);
            m_fired.remove(rule.id);
            continue;
        }
        const std::optional<double> current = value(rule.metric, state);
        if (!holds(rule, current)) {
            // The episode is over: the rule may fire again the next time it holds.
            m_conditionSince.erase(rule.id);
            m_fired.remove(rule.id);
            continue;
        }
        const double since = m_conditionSince.try_emplace(rule.id, now).first->second;
        if (!m_fired.contains(rule.id) && now - since >= rule.duration) {
            m_fired.insert(rule.id);
            m_notifier.post(notification(rule, *current));
        }
    }
}

void RuleEngine::evaluateEvents(const HubSnapshot& state, const Config& config)
{
    const EventState current = EventState::from(state);
    if (m_previous) {
        for (const Notification& n : eventAnnouncements(*m_previous, current, state, config.events, config.pingHost))
            m_notifier.post(n);
    }
    m_previous = current;
}

std::optional<double> RuleEngine::value(RuleMetric metric, const HubSnapshot& state)
{
    switch (metric) {
    case RuleMetric::cpu:
        return state.cpuTotal();
    case RuleMetric::gpu:
        return state.gpuUtilization;
    case RuleMetric::memoryPressure:
        return state.memoryPressure;
    case RuleMetric::memoryUsed:
        return state.memoryUsed;
    case RuleMetric::diskUsed:
        return state.startupVolume ? state.startupVolume->usedPercent() : std::nullopt;
    case RuleMetric::temperature:
        return state.cpuTemperature;
    case RuleMetric::batteryLevel:
        return state.batteryPresent ? std::optional<double>(state.batteryPercent) : std::nullopt;
    case RuleMetric::download:
        return state.download / 1024.0;
    case RuleMetric::upload:
        return state.upload / 1024.0;
    case RuleMetric::ping:
        return state.pingMs;
    }
    return std::nullopt;
}

QString RuleEngine::title(RuleMetric metric)
{
    switch (metric) {
    case RuleMetric::cpu: return QStringLiteral("CPU usage");
    case RuleMetric::gpu: return QStringLiteral("GPU usage");
    case RuleMetric::memoryPressure: return QStringLiteral("Memory pressure");
    case RuleMetric::memoryUsed: return QStringLiteral("Memory used");
    case RuleMetric::diskUsed: return QStringLiteral("Startup disk used");
    case RuleMetric::temperature: return QStringLiteral("CPU temperature");
    case RuleMetric::batteryLevel: return QStringLiteral("Battery level");
    case RuleMetric::download: return QStringLiteral("Download speed");
    case RuleMetric::upload: return QStringLiteral("Upload speed");
    case RuleMetric::ping: return QStringLiteral("Ping time");
    }
    return {};
}

QString RuleEngine::unit(RuleMetric metric)
{
    switch (metric) {
    case RuleMetric::temperature: return QStringLiteral("°C");
    case RuleMetric::download:
    case RuleMetric::upload: return QStringLiteral("KB/s");
    case RuleMetric::ping: return QStringLiteral("ms");
    default: return QStringLiteral("%");
    }
}

QString RuleEngine::format(double x)
{
    return Fmt::number(x, x == std::round(x) ? 0 : 1);
}

Notification RuleEngine::notification(const Rule& rule, double value)
{
    const QString u = unit(rule.metric);
    const QString direction = rule.comparison == RuleComparison::above ? QStringLiteral("is above")
                                                                        : QStringLiteral("is below");
    QString body = "Currently " + format(value) + " " + u;
    if (rule.duration > 0)
        body += " for " + QString::number(static_cast<int64_t>(rule.duration)) + " seconds";
    body += '.';
    return {title(rule.metric) + " " + direction + " " + format(rule.threshold) + " " + u, body};
}

} // namespace pulsebar
