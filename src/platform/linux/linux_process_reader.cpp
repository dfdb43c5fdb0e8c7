#include "platform/linux/linux_process_reader.h"

#include "platform/linux/proc_parse.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <sys/resource.h>
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

LinuxProcessReader::LinuxProcessReader(RootedFileReader sysfs) : m_sysfs(std::move(sysfs))
{
    const long ticks = ::sysconf(_SC_CLK_TCK);
    m_ticksToNanos = 1e9 / double(ticks > 0 ? ticks : 100);
    const long page = ::sysconf(_SC_PAGESIZE);
    m_pageSize = uint64_t(page > 0 ? page : 4096);
    m_holdFiles = m_sysfs.isProcFileSystem("proc");
    // Two descriptors per held process, within a quarter of the descriptor limit; processes beyond
    // that are opened and closed on each sample instead. The soft limit of 1024 that desktops start
    // programs with only protects select(), which nothing here uses, so it is raised towards the
    // hard limit first, as far as 8192.
    struct rlimit limit {};
    rlim_t soft = 1024;
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        soft = limit.rlim_cur;
        if (m_holdFiles && soft < 8192 && limit.rlim_max > soft) {
            limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8192);
            if (::setrlimit(RLIMIT_NOFILE, &limit) == 0)
                soft = limit.rlim_cur;
        }
    }
    m_holdLimit = std::size_t(std::min<rlim_t>(soft, 8192) / 8);
}

std::optional<ProcessUsage> LinuxProcessReader::parse(const char* io, long ioSize, const char* stat, long statSize) const
{
    if (ioSize <= 0 || statSize <= 0)
        return std::nullopt;
    const auto ioCounters = ProcParse::pidIo({io, std::size_t(ioSize)});
    const auto statCounters = ProcParse::pidStat({stat, std::size_t(statSize)});
    if (!ioCounters || !statCounters)
        return std::nullopt;
    return ProcessUsage{statCounters->cpuTicks, statCounters->residentPages * m_pageSize, ioCounters->readBytes,
                        ioCounters->writeBytes};
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
    if (listed) {
        // Let go of the files of processes that have ended.
        for (auto it = m_held.begin(); it != m_held.end();)
            it = std::binary_search(out.begin(), out.end(), it->first) ? std::next(it) : m_held.erase(it);
    }
    return listed;
}

std::optional<ProcessUsage> LinuxProcessReader::usage(int32_t pid)
{
    char io[1024];
    char stat[1024];
    const auto held = m_held.find(pid);
    if (held != m_held.end()) {
        const long ioSize = held->second.io.read(io, sizeof io);
        const long statSize = held->second.stat.read(stat, sizeof stat);
        if (const auto usage = parse(io, ioSize, stat, statSize))
            return usage;
        m_held.erase(held); // ended, or its pid now names another process: open afresh below
    }
    if (m_holdFiles && m_held.size() < m_holdLimit) {
        HeldFiles files{m_sysfs.open(PidPath(pid, "io")), RootedFileReader::OpenFile()};
        const long ioSize = files.io.read(io, sizeof io);
        if (ioSize <= 0)
            return std::nullopt; // another user's process fails here, before stat is opened
        files.stat = m_sysfs.open(PidPath(pid, "stat"));
        const auto usage = parse(io, ioSize, stat, files.stat.read(stat, sizeof stat));
        if (usage)
            m_held.emplace(pid, std::move(files));
        return usage;
    }
    // io first: for another user's process it fails at once and stat is never read.
    const long ioSize = m_sysfs.readInto(PidPath(pid, "io"), io, sizeof io);
    if (ioSize <= 0)
        return std::nullopt;
    return parse(io, ioSize, stat, m_sysfs.readInto(PidPath(pid, "stat"), stat, sizeof stat));
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
