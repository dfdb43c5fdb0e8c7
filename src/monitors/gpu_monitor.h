#pragma once

#include "history/history.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace pulsebar {

// What one accelerator reports in one sample.
struct GPUReading {
    std::optional<QString> name;
    std::optional<int> cores;
    std::optional<double> utilization; // percent; absent when the device exposes no load
    std::optional<double> memoryUsed;  // bytes
};

class GPUReader {
public:
    virtual ~GPUReader() = default;
    // The accelerators in a stable order (card order); empty when there are none.
    virtual std::vector<GPUReading> read() = 0;
};

struct GPU {
    int id = 0; // position among the accelerators of the sample
    QString name;
    std::optional<int> cores;
    double utilization = 0; // percent 0-100
    std::optional<double> renderer;
    std::optional<double> tiler;
    std::optional<double> memoryUsed; // bytes
    History history;
};

class GPUMonitor {
public:
    explicit GPUMonitor(std::unique_ptr<GPUReader> reader);
    ~GPUMonitor();
    GPUMonitor(const GPUMonitor&) = delete;
    GPUMonitor& operator=(const GPUMonitor&) = delete;

    void sample();

    // The busiest accelerator's utilisation, 0 without accelerators.
    double utilization() const;

    std::vector<GPU> gpus;

private:
    std::unique_ptr<GPUReader> m_reader;
};

} // namespace pulsebar
