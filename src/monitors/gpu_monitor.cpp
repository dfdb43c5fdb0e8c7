#include "monitors/gpu_monitor.h"

#include <algorithm>

namespace pulsebar {

GPUMonitor::GPUMonitor(std::unique_ptr<GPUReader> reader) : m_reader(std::move(reader)) {}

GPUMonitor::~GPUMonitor() = default;

double GPUMonitor::utilization() const
{
    double busiest = 0;
    for (const GPU& gpu : gpus)
        busiest = std::max(busiest, gpu.utilization);
    return busiest;
}

void GPUMonitor::sample()
{
    std::vector<GPU> fresh;
    int index = 0;
    for (const GPUReading& reading : m_reader->read()) {
        // Entries keep their identity by position: name and trail survive from the last sample.
        GPU gpu;
        if (std::size_t(index) < gpus.size()) {
            gpu = std::move(gpus[std::size_t(index)]);
        } else {
            gpu.id = index;
            gpu.name = reading.name && !reading.name->isEmpty() ? *reading.name : QStringLiteral("GPU");
            gpu.cores = reading.cores;
        }
        gpu.utilization = std::clamp(reading.utilization.value_or(0), 0.0, 100.0);
        gpu.memoryUsed = reading.memoryUsed;
        gpu.history.add(gpu.utilization);
        fresh.push_back(std::move(gpu));
        ++index;
    }
    gpus = std::move(fresh);
}

} // namespace pulsebar
