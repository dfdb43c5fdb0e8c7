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

// Desktops start programs with a soft limit of 1024 descriptors, which only protects select() (nothing
// here uses it). It is raised towards the hard limit, as far as 8192, once for the whole process.
rlim_t raisedDescriptorLimit()
{
    static const rlim_t soft = [] {
        struct rlimit limit {};
        if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
            return rlim_t(1024);
        if (limit.rlim_cur < 8192 && limit.rlim_max > limit.rlim_cur) {
            struct rlimit raised = limit;
            raised.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8192);
            if (::setrlimit(RLIMIT_NOFILE, &raised) == 0)
                return raised.rlim_cur;
        }
        return limit.rlim_cur;
    }();
    return soft;
}

} // namespace

LinuxProcessReader::LinuxProcessReader(RootedFileReader sysfs) : m_sysfs(std::move(sysfs))
{
    const long ticks = ::sysconf(_SC_CLK_TCK);
    m_ticksToNanos = 1e9 / double(ticks > 0 ? ticks : 100);
    const long page = ::sysconf(_SC_PAGESIZE);
    m_pageSize = uint64_t(page > 0 ? page : 4096);
    m_holdFiles = m_sysfs.isProcFileSystem("proc");
    // Up to three descriptors per held process, within three eighths of the descriptor limit;
    // processes beyond that are opened and closed on each sample instead.
    const rlim_t soft = m_holdFiles ? raisedDescriptorLimit() : 1024;
    m_holdLimit = std::size_t(std::min<rlim_t>(soft, 8192) / 8);
    if (m_holdFiles) {
        m_procIsOwnNamespace = m_sysfs.readLink("proc/self") == std::to_string(::getpid());
        m_loadavg.emplace(m_sysfs, "proc/loadavg", RootedFileReader::RepeatedFile::oneRecord);
    }
}

std::optional<uint64_t> LinuxProcessReader::lastPid()
{
    char buffer[256];
    const long n = m_loadavg ? m_loadavg->readInto(buffer, sizeof buffer) : -1;
    return n > 0 ? ProcParse::lastPid({buffer, std::size_t(n)}) : std::nullopt;
}

bool LinuxProcessReader::canReuseListing()
{
    if (!m_procIsOwnNamespace || !m_lastPidAtListing || ++m_samplesSinceListing >= listingReuseSamples)
        return false;
    return lastPid() == m_lastPidAtListing;
}

uint64_t LinuxProcessReader::residentBytes(int32_t pid, uint64_t statPages, HeldFiles* held)
{
    const int64_t approximate = int64_t(std::min<uint64_t>(statPages, uint64_t(INT64_MAX) / m_pageSize) * m_pageSize);
    auto correction = m_residentCorrection.find(pid);
    const bool due = (uint32_t(pid) + m_sampleCount) % residentRefreshSamples == 0;
    if (correction == m_residentCorrection.end() || due) {
        char statm[256];
        long n = -1;
        if (held) {
            if (!held->statm.isOpen())
                held->statm = m_sysfs.open(PidPath(pid, "statm"));
            n = held->statm.readRecord(statm, sizeof statm);
        } else {
            n = m_sysfs.readInto(PidPath(pid, "statm"), statm, sizeof statm);
        }
        const auto exact = n > 0 ? ProcParse::statmResidentPages({statm, std::size_t(n)}) : std::nullopt;
        const int64_t difference =
            exact && *exact < uint64_t(INT64_MAX) / m_pageSize ? int64_t(*exact * m_pageSize) - approximate : 0;
        correction = m_residentCorrection.insert_or_assign(pid, difference).first;
    }
    return uint64_t(std::max<int64_t>(approximate + correction->second, 0));
}

std::optional<ProcessUsage> LinuxProcessReader::usageFrom(int32_t pid, const char* stat, long statSize, const char* io,
                                                          long ioSize, HeldFiles* held)
{
    if (statSize <= 0)
        return std::nullopt;
    const auto statCounters = ProcParse::pidStat({stat, std::size_t(statSize)});
    if (!statCounters)
        return std::nullopt;
    const auto ioCounters = ioSize > 0 ? ProcParse::pidIo({io, std::size_t(ioSize)}) : std::nullopt;
    return ProcessUsage{statCounters->cpuTicks, residentBytes(pid, statCounters->residentPages, held),
                        ioCounters ? ioCounters->readBytes : 0, ioCounters ? ioCounters->writeBytes : 0};
}

bool LinuxProcessReader::listPids(std::vector<int32_t>& out)
{
    ++m_sampleCount;
    if (canReuseListing()) {
        std::erase_if(m_listed, [&](int32_t pid) {
            return std::find(m_endedSinceListing.begin(), m_endedSinceListing.end(), pid) != m_endedSinceListing.end();
        });
        m_endedSinceListing.clear();
        out = m_listed;
        return true;
    }
    // Taken before the listing: a process started while proc/ is read then shows at the next sample.
    const auto pidBeforeListing = m_procIsOwnNamespace ? lastPid() : std::nullopt;
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
        // Let go of what belonged to processes that have ended.
        const auto ended = [&](int32_t pid) { return !std::binary_search(out.begin(), out.end(), pid); };
        std::erase_if(m_held, [&](const auto& entry) { return ended(entry.first); });
        std::erase_if(m_residentCorrection, [&](const auto& entry) { return ended(entry.first); });
        m_listed = out;
        m_lastPidAtListing = pidBeforeListing;
    } else {
        m_lastPidAtListing.reset();
    }
    m_samplesSinceListing = 0;
    m_endedSinceListing.clear();
    return listed;
}

std::optional<ProcessUsage> LinuxProcessReader::usage(int32_t pid)
{
    char stat[1024];
    char io[1024];
    const auto held = m_held.find(pid);
    if (held != m_held.end()) {
        const long statSize = held->second.stat.readRecord(stat, sizeof stat);
        const long ioSize = held->second.io.isOpen() ? held->second.io.readRecord(io, sizeof io) : -1;
        if (const auto usage = usageFrom(pid, stat, statSize, io, ioSize, &held->second))
            return usage;
        // Ended, or its pid now names another process: open afresh below.
        m_held.erase(held);
        m_residentCorrection.erase(pid);
    }
    if (m_holdFiles && m_held.size() < m_holdLimit) {
        HeldFiles files{m_sysfs.open(PidPath(pid, "stat")), m_sysfs.open(PidPath(pid, "io")), {}};
        const long statSize = files.stat.readRecord(stat, sizeof stat);
        const long ioSize = files.io.readRecord(io, sizeof io);
        if (ioSize <= 0)
            files.io = RootedFileReader::OpenFile(); // another user's process: its io is not asked again
        const auto usage = usageFrom(pid, stat, statSize, io, ioSize, &files);
        if (usage)
            m_held.emplace(pid, std::move(files));
        else
            m_endedSinceListing.push_back(pid);
        return usage;
    }
    const long statSize = m_sysfs.readInto(PidPath(pid, "stat"), stat, sizeof stat);
    auto usage = usageFrom(pid, stat, statSize, io, m_sysfs.readInto(PidPath(pid, "io"), io, sizeof io), nullptr);
    if (!usage)
        m_endedSinceListing.push_back(pid);
    return usage;
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
    return executablePath(m_sysfs, pid);
}

std::optional<QString> LinuxProcessReader::executablePath(const RootedFileReader& files, int32_t pid)
{
    const auto target = files.readLink(PidPath(pid, "exe"));
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
