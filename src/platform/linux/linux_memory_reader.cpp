#include "platform/linux/linux_memory_reader.h"

#include "platform/linux/proc_parse.h"

#include <unistd.h>

namespace pulsebar {

LinuxMemoryReader::LinuxMemoryReader(RootedFileReader sysfs)
    : m_meminfoFile(sysfs, "proc/meminfo", RootedFileReader::RepeatedFile::oneRecord),
      m_vmstatFile(sysfs, "proc/vmstat"),
      m_pressureFile(sysfs, "proc/pressure/memory", RootedFileReader::RepeatedFile::oneRecord)
{
}

std::optional<MemoryReading> LinuxMemoryReader::read()
{
    if (!m_meminfoFile.readText(m_meminfo))
        return std::nullopt;
    const bool haveVmstat = m_vmstatFile.readText(m_vmstat);
    return ProcParse::memory(m_meminfo, haveVmstat ? std::optional<std::string_view>(m_vmstat) : std::nullopt);
}

std::optional<MemoryStall> LinuxMemoryReader::stall()
{
    char buffer[512];
    const long n = m_pressureFile.readInto(buffer, sizeof buffer);
    if (n <= 0)
        return std::nullopt;
    return ProcParse::memoryStall({buffer, std::size_t(n)});
}

std::optional<double> LinuxMemoryReader::pageSize()
{
    const long size = ::sysconf(_SC_PAGESIZE);
    return size > 0 ? std::optional<double>(double(size)) : std::nullopt;
}

} // namespace pulsebar
