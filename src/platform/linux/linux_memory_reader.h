#pragma once

#include "monitors/memory_monitor.h"
#include "platform/linux/rooted_file_reader.h"

#include <string>

namespace pulsebar {

// Memory accounting from proc/meminfo and proc/vmstat; stalls from proc/pressure/memory.
class LinuxMemoryReader : public MemoryReader {
public:
    explicit LinuxMemoryReader(RootedFileReader sysfs);

    std::optional<MemoryReading> read() override;
    std::optional<MemoryStall> stall() override;
    std::optional<double> pageSize() override;

private:
    RootedFileReader::RepeatedFile m_meminfoFile;
    RootedFileReader::RepeatedFile m_vmstatFile;
    RootedFileReader::RepeatedFile m_pressureFile;
    std::string m_meminfo; // reused buffers
    std::string m_vmstat;
};

} // namespace pulsebar
