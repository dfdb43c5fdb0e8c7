#include "platform/linux/linux_cpu_reader.h"

#include "platform/linux/proc_parse.h"

#include <algorithm>
#include <set>

namespace pulsebar {

LinuxCPUReader::LinuxCPUReader(RootedFileReader sysfs)
    : m_sysfs(std::move(sysfs)), m_stat(m_sysfs, "proc/stat", RootedFileReader::RepeatedFile::oneRecord),
      m_loadavg(m_sysfs, "proc/loadavg", RootedFileReader::RepeatedFile::oneRecord)
{
}

CPUFacts LinuxCPUReader::facts()
{
    CPUFacts facts;
    if (const auto cpuinfo = m_sysfs.readText("proc/cpuinfo"))
        facts.brand = ProcParse::cpuBrand(*cpuinfo);
    if (!facts.brand) {
        // ARM boards name the machine in the device tree rather than the processor.
        if (const auto model = m_sysfs.readLine("proc/device-tree/model"); model && !model->empty())
            facts.brand = QString::fromStdString(*model);
    }

    std::vector<CPUTicks> ticks;
    std::vector<int> cpus;
    if (readTicks(ticks)) {
        facts.logicalCount = int(ticks.size());
        for (const CPUTicks& t : ticks)
            cpus.push_back(t.index);
    }

    // Physical cores: distinct (package, core) pairs of the online CPUs.
    std::set<std::pair<int64_t, int64_t>> physical;
    for (const int cpu : cpus) {
        const std::string topology = "sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/topology/";
        const auto package = m_sysfs.readInt(topology + "physical_package_id");
        const auto core = m_sysfs.readInt(topology + "core_id");
        if (package && core)
            physical.insert({*package, *core});
    }
    if (!physical.empty())
        facts.physicalCount = int(physical.size());

    readCoreClasses(facts, cpus);

    if (const auto stat = m_sysfs.readText("proc/stat"))
        facts.bootTime = ProcParse::bootTime(*stat);
    if (const auto uptime = m_sysfs.readText("proc/uptime"))
        facts.uptime = ProcParse::uptime(*uptime);
    return facts;
}

void LinuxCPUReader::readCoreClasses(CPUFacts& facts, const std::vector<int>& cpus) const
{
    // Hybrid Intel processors list their two kinds of cores as two PMU devices.
    const auto big = m_sysfs.readLine("sys/devices/cpu_core/cpus");
    const auto little = m_sysfs.readLine("sys/devices/cpu_atom/cpus");
    if (big && little) {
        facts.performanceCPUs = ProcParse::cpuList(*big);
        facts.efficiencyCPUs = ProcParse::cpuList(*little);
        if (!facts.performanceCPUs.empty() && !facts.efficiencyCPUs.empty())
            return;
    }
    facts.performanceCPUs.clear();
    facts.efficiencyCPUs.clear();

    // ARM big.LITTLE: a capacity below the largest marks an efficiency core.
    std::vector<std::pair<int, int64_t>> capacities;
    for (const int cpu : cpus)
        if (const auto capacity = m_sysfs.readInt("sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/cpu_capacity"))
            capacities.emplace_back(cpu, *capacity);
    if (capacities.empty())
        return;
    int64_t largest = 0;
    for (const auto& [cpu, capacity] : capacities)
        largest = std::max(largest, capacity);
    for (const auto& [cpu, capacity] : capacities)
        (capacity < largest ? facts.efficiencyCPUs : facts.performanceCPUs).push_back(cpu);
    if (facts.efficiencyCPUs.empty()) // one class only: no split to show
        facts.performanceCPUs.clear();
}

bool LinuxCPUReader::readTicks(std::vector<CPUTicks>& out)
{
    if (!m_stat.readText(m_buffer))
        return false;
    return ProcParse::cpuTicks(m_buffer, out);
}

std::optional<std::array<double, 3>> LinuxCPUReader::loadAverage()
{
    char buffer[256];
    const long n = m_loadavg.readInto(buffer, sizeof buffer);
    if (n <= 0)
        return std::nullopt;
    return ProcParse::loadAverage({buffer, std::size_t(n)});
}

} // namespace pulsebar
