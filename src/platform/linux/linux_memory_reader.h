#pragma once

#include "monitors/memory_monitor.h"
#include "platform/linux/sysfs.h"

#include <string>

namespace pulsebar {

// Memory accounting from proc/meminfo and proc/vmstat; stalls from proc/pressure/memory.
class LinuxMemoryReader : public MemoryReader {
public:
    explicit LinuxMemoryReader(SysFs sysfs);

    std::optional<MemoryReading> read() override;
    std::optional<MemoryStall> stall() override;
    std::optional<double> pageSize() override;

private:
    SysFs::RepeatedFile m_meminfoFile;
    SysFs::RepeatedFile m_vmstatFile;
    SysFs::RepeatedFile m_pressureFile;
    std::string m_meminfo; // reused buffers
    std::string m_vmstat;
};

} // namespace pulsebar
