#include "monitors/cpu_monitor.h"

#include "core/clock.h"
#include "monitors/counters.h"

#include <algorithm>

namespace pulsebar {

CPUMonitor::CPUMonitor(std::unique_ptr<CPUReader> reader, std::function<double()> clock)
    : now(clock ? std::move(clock) : systemClock()), m_reader(std::move(reader))
{
    const CPUFacts facts = m_reader->facts();
    if (facts.brand && !facts.brand->isEmpty())
        brand = *facts.brand;
    physicalCount = facts.physicalCount.value_or(0);
    logicalCount = facts.logicalCount.value_or(0);
    // Two classes of cores or none: a machine whose cores are all alike shows no split.
    if (!facts.efficiencyCPUs.empty() && !facts.performanceCPUs.empty()) {
        performanceCount = int(facts.performanceCPUs.size());
        efficiencyCount = int(facts.efficiencyCPUs.size());
        m_efficiencyCPUs = facts.efficiencyCPUs;
        std::sort(m_efficiencyCPUs.begin(), m_efficiencyCPUs.end());
    }
    bootTime = facts.bootTime.value_or(now() - facts.uptime.value_or(0));
}

CPUMonitor::~CPUMonitor() = default;

bool CPUMonitor::isEfficiencyCPU(int index) const
{
    return std::binary_search(m_efficiencyCPUs.begin(), m_efficiencyCPUs.end(), index);
}

void CPUMonitor::sample()
{
    if (!m_reader->readTicks(m_current) || m_current.empty())
        return;

    // A different set of CPUs (one was taken offline) cannot be compared: start again from here.
    const bool sameCPUs = previous.size() == m_current.size()
        && std::equal(previous.begin(), previous.end(), m_current.begin(),
                      [](const CPUTicks& a, const CPUTicks& b) { return a.index == b.index; });
    if (!sameCPUs) {
        previous = m_current;
        return;
    }

    cores.clear();
    double sumUser = 0, sumSystem = 0, sumTotal = 0;
    for (std::size_t i = 0; i < m_current.size(); ++i) {
        const CPUTicks& current = m_current[i];
        const CPUTicks& before = previous[i];
        const double dUser = double(counterDelta(current.user, before.user));
        const double dSystem = double(counterDelta(current.system, before.system));
        const double dIdle = double(counterDelta(current.idle, before.idle));
        const double dNice = double(counterDelta(current.nice, before.nice));
        const double total = dUser + dSystem + dIdle + dNice;
        Core core;
        core.index = current.index;
        core.isEfficiency = isEfficiencyCPU(current.index);
        if (total > 0) {
            core.user = (dUser + dNice) / total * 100;
            core.system = dSystem / total * 100;
        }
        cores.push_back(core);
        sumUser += dUser + dNice;
        sumSystem += dSystem;
        sumTotal += total;
    }
    // Weighted over all cores, so 100 means every core busy.
    user = sumTotal > 0 ? sumUser / sumTotal * 100 : 0;
    system = sumTotal > 0 ? sumSystem / sumTotal * 100 : 0;
    userHistory.add(user);
    systemHistory.add(system);
    totalHistory.add(user + system);

    if (const auto load = m_reader->loadAverage())
        loadAverage = *load;
    loadHistory.add(loadAverage[0]);
    uptime = std::max(0.0, now() - bootTime);
    previous.swap(m_current);
}

} // namespace pulsebar
