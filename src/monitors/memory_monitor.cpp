#include "monitors/memory_monitor.h"

#include "core/clock.h"
#include "monitors/counters.h"

#include <algorithm>

namespace pulsebar {

namespace {

// The kernel's view of how hard memory is to get: stalls over the last 10 s when the kernel reports
// them, else how little is still available.
MemoryPressureLevel pressureLevelFor(const std::optional<MemoryStall>& stall, double availablePercent)
{
    using enum MemoryPressureLevel;
    if (stall) {
        if (stall->fullAvg10 >= 10 || stall->someAvg10 >= 40)
            return critical;
        return stall->someAvg10 >= 10 ? warning : normal;
    }
    if (availablePercent < 5)
        return critical;
    return availablePercent < 15 ? warning : normal;
}

double bytes(uint64_t value) { return double(value); }

} // namespace

MemoryMonitor::MemoryMonitor(std::unique_ptr<MemoryReader> reader, std::function<double()> clock)
    : now(clock ? std::move(clock) : systemClock()), m_reader(std::move(reader))
{
    if (const auto size = m_reader->pageSize(); size && *size > 0)
        pageSize = *size;
    if (const auto reading = m_reader->read())
        total = bytes(reading->total);
}

MemoryMonitor::~MemoryMonitor() = default;

double MemoryMonitor::usedPercent() const
{
    return total > 0 ? (app + wired + compressed) / total * 100 : 0;
}

void MemoryMonitor::sample()
{
    const auto r = m_reader->read();
    if (!r)
        return;
    if (total <= 0) // the reading at creation failed
        total = bytes(r->total);

    wired = bytes(r->unreclaimableSlab + r->kernelStack + r->pageTables);
    compressed = bytes(r->zswap);
    app = std::max(0.0, bytes(r->total) - bytes(r->available) - wired - compressed);
    cached = std::max(0.0, bytes(r->cached + r->buffers + r->reclaimableSlab) - bytes(r->shmem));
    free = std::max(0.0, total - (app + wired + compressed));

    const double time = now();
    if (r->pageIns && r->pageOuts) {
        if (lastSample && m_haveCounters && time - *lastSample > 0) {
            const double dt = time - *lastSample;
            pageInsRate = double(counterDelta(*r->pageIns, lastPageIns)) * pageSize / dt;
            pageOutsRate = double(counterDelta(*r->pageOuts, lastPageOuts)) * pageSize / dt;
        }
        lastPageIns = *r->pageIns;
        lastPageOuts = *r->pageOuts;
        m_haveCounters = true;
    } else {
        m_haveCounters = false; // the next rate needs two readings in a row
    }
    lastSample = time;

    // What the kernel calls available memory is the share a new allocation can still get.
    const double availablePercent = bytes(r->available) / bytes(r->total) * 100;
    pressure = std::clamp(100 - availablePercent, 0.0, 100.0);
    pressureLevel = pressureLevelFor(m_reader->stall(), availablePercent);

    if (r->swapTotal && r->swapFree) {
        swapTotal = bytes(*r->swapTotal);
        swapUsed = bytes(*r->swapTotal > *r->swapFree ? *r->swapTotal - *r->swapFree : 0);
    }

    pressureHistory.add(pressure);
    usedHistory.add(usedPercent());
}

} // namespace pulsebar
