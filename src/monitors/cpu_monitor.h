#pragma once

#include "history/history.h"

#include <QString>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace pulsebar {

// Cumulative time counters of one logical CPU since boot, in clock ticks.
struct CPUTicks {
    int index = 0; // the CPU number
    uint64_t user = 0;
    uint64_t system = 0;
    uint64_t idle = 0;
    uint64_t nice = 0;

    bool operator==(const CPUTicks&) const = default;
};

// Facts about the processor that do not change while the program runs.
struct CPUFacts {
    std::optional<QString> brand;
    std::optional<int> physicalCount;
    std::optional<int> logicalCount;
    // CPU numbers of the efficiency class and the performance class; both empty on a machine whose
    // CPUs are all of one class.
    std::vector<int> efficiencyCPUs;
    std::vector<int> performanceCPUs;
    std::optional<double> bootTime; // seconds since 1970
    std::optional<double> uptime;   // seconds since boot, when the boot time is unknown
};

// The raw reads the CPU monitor needs. Every read fails softly.
class CPUReader {
public:
    virtual ~CPUReader() = default;
    virtual CPUFacts facts() = 0;
    // Fills `out` with one entry per online CPU in CPU number order; false when the read failed.
    virtual bool readTicks(std::vector<CPUTicks>& out) = 0;
    virtual std::optional<std::array<double, 3>> loadAverage() = 0;
};

class CPUMonitor {
public:
    struct Core {
        int index = 0;       // the CPU number from 0
        double user = 0;     // percent of this core's time
        double system = 0;   // percent
        bool isEfficiency = false;

        bool operator==(const Core&) const = default;
    };

    explicit CPUMonitor(std::unique_ptr<CPUReader> reader,
                        std::function<double()> clock = {});
    ~CPUMonitor();
    CPUMonitor(const CPUMonitor&) = delete;
    CPUMonitor& operator=(const CPUMonitor&) = delete;

    void sample();

    QString brand = QStringLiteral("Processor");
    int performanceCount = 0;
    int efficiencyCount = 0;
    int physicalCount = 0;
    int logicalCount = 0;
    std::vector<Core> cores;
    double user = 0;   // percent of all CPU time in user mode (user + nice), 0-100
    double system = 0; // percent of all CPU time in kernel mode, 0-100
    History userHistory;
    History systemHistory;
    History totalHistory;
    std::array<double, 3> loadAverage{0, 0, 0};
    History loadHistory;
    double uptime = 0; // seconds since boot
    std::vector<CPUTicks> previous;
    double bootTime = 0; // seconds since 1970

    // Seconds since 1970; the hub hands its own clock in so that tests drive time.
    std::function<double()> now;

private:
    bool isEfficiencyCPU(int index) const;

    std::unique_ptr<CPUReader> m_reader;
    std::vector<int> m_efficiencyCPUs;
    std::vector<CPUTicks> m_current; // reused buffer, so a sample allocates nothing once warmed up
};

} // namespace pulsebar
