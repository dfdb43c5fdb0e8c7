#pragma once

#include "monitors/process_monitor.h"
#include "platform/linux/sysfs.h"

namespace pulsebar {

// Processes from proc/: the numeric entries are the pids; proc/PID/stat carries the CPU time and the
// resident set, proc/PID/io the storage bytes. proc/PID/io is readable only for the user's own
// processes, which is what keeps other users' processes out of the list.
class LinuxProcessReader : public ProcessReader {
public:
    explicit LinuxProcessReader(SysFs sysfs);

    bool listPids(std::vector<int32_t>& out) override;
    std::optional<ProcessUsage> usage(int32_t pid) override;
    std::optional<QString> shortName(int32_t pid) override;
    std::optional<QString> executablePath(int32_t pid) override;
    double ticksToNanos() override { return m_ticksToNanos; }

private:
    SysFs m_sysfs;
    double m_ticksToNanos;
    uint64_t m_pageSize;
};

} // namespace pulsebar
