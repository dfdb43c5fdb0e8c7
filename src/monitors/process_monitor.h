#pragma once

#include "core/enum_names.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace pulsebar {

struct ProcessSample {
    int32_t pid = 0;
    QString name;
    double cpu = 0;       // percent of one core: 100 is one full core, so it may exceed 100
    double memory = 0;    // bytes resident
    double diskRead = 0;  // bytes per second
    double diskWrite = 0; // bytes per second

    double diskTotal() const { return diskRead + diskWrite; }
};

// The numeric fields a process list can be ordered by.
enum class ProcessSortKey { cpu, memory, diskRead, diskWrite, diskTotal };
template <>
struct EnumNames<ProcessSortKey> {
    static constexpr std::array<std::string_view, 5> names{"cpu", "memory", "diskRead", "diskWrite", "diskTotal"};
};
double sortValue(const ProcessSample& sample, ProcessSortKey key);

// Cumulative counters of one process.
struct ProcessUsage {
    uint64_t cpuTicks = 0;      // user + system time, in the reader's ticks (see ticksToNanos)
    uint64_t residentBytes = 0;
    uint64_t readBytes = 0;     // from storage
    uint64_t writtenBytes = 0;
};

class ProcessReader {
public:
    virtual ~ProcessReader() = default;
    // Fills `out` with every process identifier in listing order; false when the listing failed.
    virtual bool listPids(std::vector<int32_t>& out) = 0;
    // nullopt when the process has ended or its counters may not be read (another user's process).
    virtual std::optional<ProcessUsage> usage(int32_t pid) = 0;
    // The process's short name; nullopt when it cannot be read.
    virtual std::optional<QString> shortName(int32_t pid) = 0;
    virtual std::optional<QString> executablePath(int32_t pid) = 0;
    // Nanoseconds per tick of ProcessUsage::cpuTicks.
    virtual double ticksToNanos() = 0;
};

class ProcessMonitor {
public:
    explicit ProcessMonitor(std::unique_ptr<ProcessReader> reader, std::function<double()> clock = {});
    ~ProcessMonitor();
    ProcessMonitor(const ProcessMonitor&) = delete;
    ProcessMonitor& operator=(const ProcessMonitor&) = delete;

    void sample();

    // The `count` largest by `key`, descending; equal values keep their listing order.
    std::vector<ProcessSample> top(ProcessSortKey by, int count) const;

    // The display name of a pid, cached for the life of the process.
    QString name(int32_t pid);
    // True while the monitor keeps anything of `pid` (its counters or its name); an ended process is
    // forgotten by the next sample.
    bool remembers(int32_t pid) const { return m_previous.count(pid) + m_names.count(pid) > 0; }

    std::optional<QString> executablePath(int32_t pid) { return m_reader->executablePath(pid); }

    std::vector<ProcessSample> processes; // in listing order
    double ticksToNanos = 1;

    std::function<double()> now;

private:
    struct Counters {
        uint64_t cpu = 0;   // nanoseconds
        uint64_t read = 0;  // bytes
        uint64_t write = 0; // bytes
    };

    std::unique_ptr<ProcessReader> m_reader;
    std::vector<int32_t> m_pids;                     // reused listing buffer
    std::unordered_map<int32_t, Counters> m_previous;
    std::unordered_map<int32_t, Counters> m_current; // reused map, swapped with m_previous
    std::unordered_map<int32_t, QString> m_names;
    std::optional<double> m_lastSample;
    std::vector<ProcessSample> m_next;               // reused list, swapped with `processes`
};

} // namespace pulsebar
