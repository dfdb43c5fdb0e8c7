#pragma once

#include "monitors/process_monitor.h"
#include "platform/linux/rooted_file_reader.h"

#include <unordered_map>

namespace pulsebar {

// Processes from proc/: the numeric entries are the pids; proc/PID/stat carries the CPU time and the
// resident set, proc/PID/io the storage bytes. proc/PID/io is readable only for the user's own
// processes, which is what keeps other users' processes out of the list.
class LinuxProcessReader : public ProcessReader {
public:
    explicit LinuxProcessReader(RootedFileReader sysfs);

    bool listPids(std::vector<int32_t>& out) override;
    std::optional<ProcessUsage> usage(int32_t pid) override;
    std::optional<QString> shortName(int32_t pid) override;
    std::optional<QString> executablePath(int32_t pid) override;
    double ticksToNanos() override { return m_ticksToNanos; }

    bool isHoldingFiles(int32_t pid) const { return m_held.count(pid) > 0; }

private:
    // The two counter files of a process, held open across samples. A held file belongs to the
    // process it was opened for: once that process ends, reading fails, even if its pid was reused.
    struct HeldFiles {
        RootedFileReader::OpenFile io;
        RootedFileReader::OpenFile stat;
    };

    std::optional<ProcessUsage> parse(const char* io, long ioSize, const char* stat, long statSize) const;

    RootedFileReader m_sysfs;
    double m_ticksToNanos;
    uint64_t m_pageSize;
    bool m_holdFiles;        // only on a real proc file system: fixture files are replaced, not rewritten
    std::size_t m_holdLimit; // processes whose files may be held, within the descriptor limit
    std::unordered_map<int32_t, HeldFiles> m_held;
};

} // namespace pulsebar
