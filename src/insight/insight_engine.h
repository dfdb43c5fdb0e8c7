#pragma once

#include "hub/hub_snapshot.h"
#include "core/config.h"
#include "insight/insight.h"

#include <map>
#include <optional>

namespace pulsebar {

class Hub;
class Notifier;

// Turns the live state into the insight line. Six conditions are watched over time so that a brief
// spike never becomes an insight; the first picking rule that applies names the load and, where there
// is one, the process responsible. A change to something that matters can be announced, at most once
// per kind every 30 minutes. Runs on the main thread with the hub's tick.
class InsightEngine {
public:
    // The hub is read on evaluate(now); it must outlive the engine.
    explicit InsightEngine(const Hub& hub);
    InsightEngine(const Hub& hub, Notifier& notifier);

    // One tick: reads the hub's live state and configuration.
    void evaluate(double now);
    // The same step on a given state, for callers that already hold one.
    void evaluate(const HubSnapshot& state, const Config& config, double now);

    // The insight last produced; "All quiet." until something has held long enough.
    const Insight& current() const { return m_current; }

    // "1 min" (never less), "59 min", "1 h 59 min", "2 h".
    static QString minutes(double seconds);

private:
    // A condition watched over time. A dip of up to three ticks keeps `since`; the fourth ends it.
    struct Sustained {
        std::optional<double> since;
        int misses = 0;

        void update(bool holds, double now);
        // Seconds it has held, or absent while it does not.
        std::optional<double> duration(double now) const;
        bool heldFor(double seconds, double now) const;
    };

    void updateConditions(const HubSnapshot& state, double now);
    Insight pick(const HubSnapshot& state, const Config& config, double now) const;
    std::optional<Insight> memoryInsight(const HubSnapshot& state, double now) const;
    std::optional<Insight> cpuInsight(const HubSnapshot& state, double now) const;
    void notifyIfDue(const Insight& picked, const Config& config, double now);

    const Hub& m_hub;
    Notifier& m_notifier;
    Insight m_current;
    Sustained m_memoryPressure;
    Sustained m_cpuTotal;
    Sustained m_diskBusy;
    Sustained m_networkBusy;
    Sustained m_batteryDrain;
    std::map<int32_t, Sustained> m_processCPU; // by pid; ties in duration go to the lowest pid
    std::map<Insight::Kind, double> m_lastNotified;
};

} // namespace pulsebar
