#pragma once

#include "monitors/cpu_monitor.h"
#include "monitors/memory_monitor.h"

#include <QString>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace pulsebar {

// Pure parsers of the kernel's text files: each takes the file's text and returns what it found, so
// every rule can be tested on a string. Malformed input never throws; it yields nullopt or false.
namespace ProcParse {

// The cpuN lines of proc/stat, in file order. user = user; nice = nice; system = system + irq + softirq;
// idle = idle + iowait + steal. False when there is no cpuN line or one of them is malformed.
bool cpuTicks(std::string_view procStat, std::vector<CPUTicks>& out);
std::optional<double> bootTime(std::string_view procStat); // "btime", seconds since 1970
std::optional<std::array<double, 3>> loadAverage(std::string_view procLoadavg);
// The last pid the kernel handed out (loadavg's fifth field): it moves with every new process or thread.
std::optional<uint64_t> lastPid(std::string_view procLoadavg);
std::optional<double> uptime(std::string_view procUptime);
// "model name" (x86), else "Hardware" or "Model" (ARM).
std::optional<QString> cpuBrand(std::string_view procCpuinfo);
// A kernel CPU list such as "0-3,8,10-11".
std::vector<int> cpuList(std::string_view text);

// proc/meminfo (kB figures become bytes), with the swap-in and swap-out page counters of proc/vmstat.
std::optional<MemoryReading> memory(std::string_view procMeminfo, std::optional<std::string_view> procVmstat);
// proc/pressure/memory.
std::optional<MemoryStall> memoryStall(std::string_view text);

struct PidStat {
    uint64_t cpuTicks = 0;      // utime + stime
    uint64_t residentPages = 0; // rss
};
// proc/PID/stat. The command between the parentheses may itself hold spaces and parentheses.
std::optional<PidStat> pidStat(std::string_view text);
struct PidIo {
    uint64_t readBytes = 0;
    uint64_t writeBytes = 0;
};
std::optional<PidIo> pidIo(std::string_view text);
// proc/PID/statm: the resident set in pages (its second figure). Newer kernels sum it exactly, as
// for status and ps, where the rss of stat is a cheaper counter that may lag by a few percent.
std::optional<uint64_t> statmResidentPages(std::string_view text);
// The display name of a process: comm, or, when comm is 15 characters long (the kernel cuts it
// there), the base name of the first argument in cmdline.
std::optional<QString> processName(std::optional<std::string_view> comm, std::optional<std::string_view> cmdline);

// proc/diskstats: calls `visit` with each device name and its sectors read and written.
void diskStats(std::string_view text,
               const std::function<void(std::string_view name, uint64_t sectorsRead, uint64_t sectorsWritten)>& visit);

struct MountEntry {
    int major = 0;
    int minor = 0;
    std::string root;       // the folder of the file system that is mounted (not "/" for bind mounts)
    std::string mountPoint; // unescaped
    std::string fsType;
    std::string source;
    bool readOnly = false;  // the per-mount "ro" option
};
// proc/self/mountinfo, in mount order; malformed lines are skipped.
std::vector<MountEntry> mountInfo(std::string_view text);
// Undoes the kernel's octal escapes ("\040" for a space) of mount points.
std::string unescapeOctal(std::string_view text);
// Undoes udev's "\x20"-style escapes of /dev/disk/by-label names.
QString unescapeLabel(std::string_view text);

// The name pci.ids gives a vendor:device pair, such as "Radeon RX 6800/6800 XT / 6900 XT" for
// 1002:73bf: the bracketed marketing name when the entry has one, else the whole device name.
std::optional<QString> pciDeviceName(std::string_view pciIds, uint32_t vendor, uint32_t device);

} // namespace ProcParse

} // namespace pulsebar
