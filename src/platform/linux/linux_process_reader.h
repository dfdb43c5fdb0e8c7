#pragma once

#include "monitors/process_monitor.h"
#include "platform/linux/rooted_file_reader.h"

#include <unordered_map>

namespace pulsebar {

// Processes from proc/: the numeric entries are the pids; proc/PID/stat carries the CPU time and the
// resident set, proc/PID/io the storage bytes. Every process whose stat can be read is listed;
// proc/PID/io is readable only for the user's own processes (all, for root), so the others show no
// disk activity.
class LinuxProcessReader : public ProcessReader {
public:
    explicit LinuxProcessReader(RootedFileReader sysfs);

    bool listPids(std::vector<int32_t>& out) override;
    std::optional<ProcessUsage> usage(int32_t pid) override;
    std::optional<QString> shortName(int32_t pid) override;
    std::optional<QString> executablePath(int32_t pid) override;
    double ticksToNanos() override { return m_ticksToNanos; }

    bool isHoldingFiles(int32_t pid) const { return m_held.count(pid) > 0; }

    // The target of proc/PID/exe, without constructing a reader.
    static std::optional<QString> executablePath(const RootedFileReader& files, int32_t pid);

    // Samples between two exact readings of one process's resident set; processes take their turns
    // spread over the samples, so each sample reads statm for about one process in this many.
    static constexpr uint32_t residentRefreshSamples = 8;
    // Samples that may reuse one listing of proc/ while no new pid is handed out; then it is listed again.
    static constexpr uint32_t listingReuseSamples = 30;

private:
    // The counter files of a process, held open across samples. A held file belongs to the process
    // it was opened for: once that process ends, reading fails, even if its pid was reused.
    struct HeldFiles {
        RootedFileReader::OpenFile stat;
        RootedFileReader::OpenFile io;    // not open for another user's process
        RootedFileReader::OpenFile statm; // opened at the first exact reading of the resident set
    };

    // Listing proc/ is the costliest part of a sample (the kernel looks up every pid's entry). A new
    // process or thread always takes a new pid, so while the last pid handed out stays the same, the
    // previous list less the processes that have ended since is the list.
    bool canReuseListing();
    std::optional<uint64_t> lastPid();

    // `held` is null for a process whose files are not held.
    std::optional<ProcessUsage> usageFrom(int32_t pid, const char* stat, long statSize, const char* io, long ioSize,
                                          HeldFiles* held);
    // stat's resident set, corrected by the difference to statm's exact figure at its last reading.
    uint64_t residentBytes(int32_t pid, uint64_t statPages, HeldFiles* held);

    RootedFileReader m_sysfs;
    double m_ticksToNanos;
    uint64_t m_pageSize;
    bool m_holdFiles;        // only on a real proc file system: fixture files are replaced, not rewritten
    std::size_t m_holdLimit; // processes whose files may be held, within the descriptor limit
    std::unordered_map<int32_t, HeldFiles> m_held;
    std::unordered_map<int32_t, int64_t> m_residentCorrection; // bytes, by pid
    uint32_t m_sampleCount = 0;

    bool m_procIsOwnNamespace = false; // proc/'s pids are this process's pid namespace's
    std::optional<RootedFileReader::RepeatedFile> m_loadavg;
    std::optional<uint64_t> m_lastPidAtListing;
    uint32_t m_samplesSinceListing = 0;
    std::vector<int32_t> m_listed;
    std::vector<int32_t> m_endedSinceListing;
};

} // namespace pulsebar
