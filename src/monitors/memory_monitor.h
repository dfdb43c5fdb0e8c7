#pragma once

#include "core/enum_names.h"
#include "history/history.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace pulsebar {

// One reading of the kernel's memory accounting. Byte figures; an absent value was not reported.
struct MemoryReading {
    uint64_t total = 0;     // MemTotal
    uint64_t available = 0; // MemAvailable
    uint64_t unreclaimableSlab = 0; // SUnreclaim
    uint64_t kernelStack = 0;
    uint64_t pageTables = 0;
    uint64_t zswap = 0;
    uint64_t cached = 0;
    uint64_t buffers = 0;
    uint64_t reclaimableSlab = 0; // SReclaimable
    uint64_t shmem = 0;
    std::optional<uint64_t> swapTotal;
    std::optional<uint64_t> swapFree;
    std::optional<uint64_t> pageIns;  // cumulative pages swapped in
    std::optional<uint64_t> pageOuts; // cumulative pages swapped out
};

// Pressure stall information: the share of the last 10 s in which some or all tasks waited for memory.
struct MemoryStall {
    double someAvg10 = 0;
    double fullAvg10 = 0;
};

// How hard memory is to get, in rising order; the names are the ones agents read.
enum class MemoryPressureLevel { normal, warning, critical };
template <>
struct EnumNames<MemoryPressureLevel> {
    static constexpr std::array<std::string_view, 3> names{"normal", "warning", "critical"};
};

class MemoryReader {
public:
    virtual ~MemoryReader() = default;
    // nullopt when the accounting cannot be read or lacks MemTotal or MemAvailable.
    virtual std::optional<MemoryReading> read() = 0;
    virtual std::optional<MemoryStall> stall() = 0;
    virtual std::optional<double> pageSize() = 0;
};

class MemoryMonitor {
public:
    explicit MemoryMonitor(std::unique_ptr<MemoryReader> reader, std::function<double()> clock = {});
    ~MemoryMonitor();
    MemoryMonitor(const MemoryMonitor&) = delete;
    MemoryMonitor& operator=(const MemoryMonitor&) = delete;

    void sample();

    // "Used" everywhere means app + wired + compressed; 0 when total is not positive.
    double usedPercent() const;

    double total = 0; // bytes of physical memory, fixed at creation
    double app = 0;
    double wired = 0;
    double compressed = 0;
    double cached = 0;
    double free = 0;
    double pressure = 0;   // percent 0-100
    MemoryPressureLevel pressureLevel = MemoryPressureLevel::normal;
    double swapUsed = 0;
    double swapTotal = 0;
    double pageInsRate = 0;  // bytes per second
    double pageOutsRate = 0; // bytes per second
    History pressureHistory;
    History usedHistory;
    uint64_t lastPageIns = 0;
    uint64_t lastPageOuts = 0;
    std::optional<double> lastSample;
    double pageSize = 16384;

    std::function<double()> now;

private:
    std::unique_ptr<MemoryReader> m_reader;
    bool m_haveCounters = false; // lastPageIns/lastPageOuts hold a real reading
};

} // namespace pulsebar
