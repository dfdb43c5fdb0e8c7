#pragma once

#include "monitors/cpu_monitor.h"
#include "platform/linux/sysfs.h"

#include <string>

namespace pulsebar {

// CPU counters from proc/stat, load from proc/loadavg, facts from proc/cpuinfo and the CPU topology.
class LinuxCPUReader : public CPUReader {
public:
    explicit LinuxCPUReader(SysFs sysfs);

    CPUFacts facts() override;
    bool readTicks(std::vector<CPUTicks>& out) override;
    std::optional<std::array<double, 3>> loadAverage() override;

private:
    void readCoreClasses(CPUFacts& facts, const std::vector<int>& cpus) const;

    SysFs m_sysfs;
    SysFs::RepeatedFile m_stat;
    SysFs::RepeatedFile m_loadavg;
    std::string m_buffer; // proc/stat text, reused between samples
};

} // namespace pulsebar
