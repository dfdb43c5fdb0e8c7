#pragma once

#include "alerts/events.h"
#include "hub/hub_snapshot.h"
#include "core/config.h"

#include <QSet>

#include <map>
#include <optional>

namespace pulsebar {

class Hub;
class Notifier;

// Threshold rules and system events. A rule notifies once when its metric has been strictly above
// (or below) its threshold for its duration, and re-arms when the condition fails. Events compare this
// tick's state with the previous tick's. Nothing is posted in the first 5 seconds after the engine is
// created, so a launch never greets the user with stale alarms. Not used in the headless server.
class RuleEngine {
public:
    // The hub is read on evaluate(now); it must outlive the engine.
    RuleEngine(const Hub& hub, double startedAt);
    RuleEngine(const Hub& hub, double startedAt, Notifier& notifier);

    // One tick: rules, then events, from the hub's live state and configuration.
    void evaluate(double now);
    void evaluate(const HubSnapshot& state, const Config& config, double now);

    // The metric's current value in its unit; absent when the computer has no such reading.
    static std::optional<double> value(RuleMetric metric, const HubSnapshot& state);
    static QString title(RuleMetric metric); // "CPU usage"
    static QString unit(RuleMetric metric);  // "%", "°C", "KB/s", "ms"
    // A whole number when there is no fraction, else one decimal: 80, 80.5, 80.0 for 79.96.
    static QString format(double x);
    // The notification a rule posts when it fires.
    static Notification notification(const Rule& rule, double value);

    double startedAt() const { return m_startedAt; }

private:
    void evaluateRules(const HubSnapshot& state, const Config& config, double now);
    void evaluateEvents(const HubSnapshot& state, const Config& config);

    const Hub& m_hub;
    Notifier& m_notifier;
    double m_startedAt;
    std::map<QString, double> m_conditionSince; // by rule id
    QSet<QString> m_fired;                      // rule ids that notified in the current episode
    std::optional<EventState> m_previous;
};

} // namespace pulsebar
