#pragma once

#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace pulsebar {

// NVIDIA's management library, opened at run time: machines without the NVIDIA driver have no
// libnvidia-ml, and then there is simply no NVIDIA GPU to report.
class NVML {
public:
    struct Device {
        QString name;
        std::optional<QString> pciSlot; // "0000:01:00.0", the form sysfs uses
        std::optional<double> utilization; // percent
        std::optional<double> memoryUsed;  // bytes
    };

    // nullptr when the library is missing or does not initialise (no NVIDIA device or driver).
    static std::unique_ptr<NVML> open(const char* library = "libnvidia-ml.so.1");
    ~NVML();
    NVML(const NVML&) = delete;
    NVML& operator=(const NVML&) = delete;

    std::vector<Device> devices();

    struct Api;

private:
    explicit NVML(void* handle, std::unique_ptr<Api> api);

    void* m_handle;
    std::unique_ptr<Api> m_api;
    std::vector<QString> m_names; // by index; names cannot change while the driver is loaded
};

} // namespace pulsebar
