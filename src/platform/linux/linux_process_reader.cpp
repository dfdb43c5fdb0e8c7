#include "platform/linux/linux_process_reader.h"

#include "platform/linux/proc_parse.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <unistd.h>

namespace pulsebar {

namespace {

// "proc/<pid>/<file>" in a caller's buffer, so the per-process reads allocate nothing.
struct PidPath {
    char text[64];
    std::size_t size = 0;

    PidPath(int32_t pid, std::string_view file)
    {
        std::memcpy(text, "proc/", 5);
        const auto result = std::to_chars(text + 5, text + 32, pid);
        size = std::size_t(result.ptr - text);
        text[size++] = '/';
        const std::size_t n = std::min(file.size(), sizeof text - size);
        std::memcpy(text + size, file.data(), n);
        size += n;
    }
    operator std::string_view() const { return {text, size}; }
};

} // namespace

LinuxProcessReader::LinuxProcessReader(SysFs sysfs) : m_sysfs(std::move(sysfs))
{
    const long ticks = ::sysconf(_SC_CLK_TCK);
    m_ticksToNanos = 1e9 / double(ticks > 0 ? ticks : 100);
    const long page = ::sysconf(_SC_PAGESIZE);
    m_pageSize = uint64_t(page > 0 ? page : 4096);
}

bool LinuxProcessReader::listPids(std::vector<int32_t>& out)
{
    out.clear();
    const bool listed = m_sysfs.forEachEntry("proc", [&](std::string_view name) {
        int32_t pid = 0;
        const auto [end, ec] = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (ec == std::errc() && end == name.data() + name.size() && pid > 0)
            out.push_back(pid);
    });
    // proc/ lists pids in ascending order already; sorting costs nothing then and keeps the order
    // stable wherever else the tree comes from.
    std::sort(out.begin(), out.end());
    return listed;
}

std::optional<ProcessUsage> LinuxProcessReader::usage(int32_t pid)
{
    // io first: for another user's process it fails at once and stat is never read.
    char buffer[1024];
    long n = m_sysfs.readInto(PidPath(pid, "io"), buffer, sizeof buffer);
    if (n <= 0)
        return std::nullopt;
    const auto io = ProcParse::pidIo({buffer, std::size_t(n)});
    if (!io)
        return std::nullopt;
    n = m_sysfs.readInto(PidPath(pid, "stat"), buffer, sizeof buffer);
    if (n <= 0)
        return std::nullopt; // ended between the two reads
    const auto stat = ProcParse::pidStat({buffer, std::size_t(n)});
    if (!stat)
        return std::nullopt;
    return ProcessUsage{stat->cpuTicks, stat->residentPages * m_pageSize, io->readBytes, io->writeBytes};
}

std::optional<QString> LinuxProcessReader::shortName(int32_t pid)
{
    char comm[64];
    const long n = m_sysfs.readInto(PidPath(pid, "comm"), comm, sizeof comm);
    if (n <= 0)
        return std::nullopt;
    const std::string_view name(comm, std::size_t(n));
    if (SysText::trim(name).size() != 15)
        return ProcParse::processName(name, std::nullopt);
    char cmdline[4096];
    const long m = m_sysfs.readInto(PidPath(pid, "cmdline"), cmdline, sizeof cmdline);
    return ProcParse::processName(name, m > 0 ? std::optional<std::string_view>({cmdline, std::size_t(m)}) : std::nullopt);
}

std::optional<QString> LinuxProcessReader::executablePath(int32_t pid)
{
    const auto target = m_sysfs.readLink(PidPath(pid, "exe"));
    if (!target || target->empty() || target->front() != '/')
        return std::nullopt;
    std::string path = *target;
    // A binary replaced since the start (after an upgrade) keeps its old path with this mark.
    constexpr std::string_view deleted = " (deleted)";
    if (path.size() > deleted.size() && path.compare(path.size() - deleted.size(), deleted.size(), deleted) == 0)
        path.resize(path.size() - deleted.size());
    return QString::fromStdString(path);
}

} // namespace pulsebar
