#include "monitors/process_monitor.h"

#include "core/clock.h"
#include "monitors/counters.h"

#include <algorithm>

namespace pulsebar {

double sortValue(const ProcessSample& sample, ProcessSortKey key)
{
    switch (key) {
    case ProcessSortKey::cpu: return sample.cpu;
    case ProcessSortKey::memory: return sample.memory;
    case ProcessSortKey::diskRead: return sample.diskRead;
    case ProcessSortKey::diskWrite: return sample.diskWrite;
    case ProcessSortKey::diskTotal: return sample.diskTotal();
    }
    return 0;
}

ProcessMonitor::ProcessMonitor(std::unique_ptr<ProcessReader> reader, std::function<double()> clock)
    : ticksToNanos(reader->ticksToNanos()), now(clock ? std::move(clock) : systemClock()), m_reader(std::move(reader))
{
}

ProcessMonitor::~ProcessMonitor() = default;

QString ProcessMonitor::name(int32_t pid)
{
    const auto cached = names.find(pid);
    if (cached != names.end())
        return cached->second;
    QString name = m_reader->shortName(pid).value_or(QStringLiteral("pid %1").arg(pid));
    names.emplace(pid, name);
    return name;
}

void ProcessMonitor::sample()
{
    if (!m_reader->listPids(m_pids) || m_pids.empty())
        return;
    const double time = now();
    const double dt = lastSample ? std::max(0.0, time - *lastSample) : 0.0;

    m_next.clear();
    m_next.reserve(m_pids.size());
    for (const int32_t pid : m_pids) {
        if (pid < 1)
            continue;
        const auto usage = m_reader->usage(pid);
        if (!usage)
            continue;
        const Counters counters{uint64_t(ticksToNanos * double(usage->cpuTicks)), usage->readBytes, usage->writtenBytes};

        // Move the pid's node from the old map to the new one: a process that lives on costs no
        // allocation, and whatever stays behind in `previous` has ended.
        std::optional<Counters> before;
        auto node = previous.extract(pid);
        if (node) {
            before = node.mapped();
            node.mapped() = counters;
            m_current.insert(std::move(node));
        } else {
            m_current.insert_or_assign(pid, counters);
        }

        ProcessSample sample;
        sample.pid = pid;
        sample.name = name(pid);
        sample.memory = double(usage->residentBytes);
        if (before && dt > 0) {
            sample.cpu = double(counterDelta(counters.cpu, before->cpu)) / (dt * 1e9) * 100;
            sample.diskRead = double(counterDelta(counters.read, before->read)) / dt;
            sample.diskWrite = double(counterDelta(counters.write, before->write)) / dt;
        }
        m_next.push_back(std::move(sample));
    }

    // Names of ended processes are forgotten, so a reused pid gets a fresh name.
    for (auto it = names.begin(); it != names.end();)
        it = m_current.count(it->first) ? std::next(it) : names.erase(it);

    previous.clear();
    previous.swap(m_current);
    lastSample = time;
    processes.swap(m_next);
}

std::vector<ProcessSample> ProcessMonitor::top(ProcessSortKey by, int count) const
{
    std::vector<ProcessSample> sorted = processes;
    std::stable_sort(sorted.begin(), sorted.end(), [by](const ProcessSample& a, const ProcessSample& b) {
        return sortValue(a, by) > sortValue(b, by);
    });
    if (count >= 0 && std::size_t(count) < sorted.size())
        sorted.resize(std::size_t(count));
    return sorted;
}

} // namespace pulsebar
