#pragma once

#include "monitors/cpu_monitor.h"
#include "platform/linux/rooted_file_reader.h"

#include <string>

namespace pulsebar {

// CPU counters from proc/stat, load from proc/loadavg, facts from proc/cpuinfo and the CPU topology.
class LinuxCPUReader : public CPUReader {
public:
    explicit LinuxCPUReader(RootedFileReader sysfs);

    CPUFacts facts() override;
    bool readTicks(std::vector<CPUTicks>& out) override;
    std::optional<std::array<double, 3>> loadAverage() override;

private:
    void readCoreClasses(CPUFacts& facts, const std::vector<int>& cpus) const;

    RootedFileReader m_sysfs;
    RootedFileReader::RepeatedFile m_stat;
    RootedFileReader::RepeatedFile m_loadavg;
    std::string m_buffer; // proc/stat text, reused between samples
};

} // namespace pulsebar
