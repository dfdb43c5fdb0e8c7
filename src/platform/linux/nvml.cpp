#include "platform/linux/nvml.h"

#include <dlfcn.h>

#include <cstdio>

namespace pulsebar {

namespace {

// The few entry points used, declared after NVML's documented C interface.
using Return = int; // NVML_SUCCESS is 0
using DeviceHandle = struct nvmlDevice_st*;
struct Utilization {
    unsigned gpu;
    unsigned memory;
};
struct MemoryInfo {
    unsigned long long total;
    unsigned long long free;
    unsigned long long used;
};
struct PciInfo {
    char busIdLegacy[16];
    unsigned domain;
    unsigned bus;
    unsigned device;
    unsigned pciDeviceId;
    unsigned pciSubSystemId;
    char busId[32];
    char reserve[64]; // room for any later growth of the record
};

} // namespace

struct NVML::Api {
    Return (*init)() = nullptr;
    Return (*shutdown)() = nullptr;
    Return (*count)(unsigned*) = nullptr;
    Return (*handleByIndex)(unsigned, DeviceHandle*) = nullptr;
    Return (*name)(DeviceHandle, char*, unsigned) = nullptr;
    Return (*utilization)(DeviceHandle, Utilization*) = nullptr;
    Return (*memory)(DeviceHandle, MemoryInfo*) = nullptr;
    Return (*pciInfo)(DeviceHandle, PciInfo*) = nullptr;
};

namespace {

template <typename F>
void bind(void* handle, F& function, const char* name)
{
    function = reinterpret_cast<F>(::dlsym(handle, name));
}

} // namespace

std::unique_ptr<NVML> NVML::open(const char* library)
{
    void* handle = ::dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        return nullptr;
    auto api = std::make_unique<Api>();
    bind(handle, api->init, "nvmlInit_v2");
    bind(handle, api->shutdown, "nvmlShutdown");
    bind(handle, api->count, "nvmlDeviceGetCount_v2");
    bind(handle, api->handleByIndex, "nvmlDeviceGetHandleByIndex_v2");
    bind(handle, api->name, "nvmlDeviceGetName");
    bind(handle, api->utilization, "nvmlDeviceGetUtilizationRates");
    bind(handle, api->memory, "nvmlDeviceGetMemoryInfo");
    bind(handle, api->pciInfo, "nvmlDeviceGetPciInfo_v3");
    if (!api->pciInfo)
        bind(handle, api->pciInfo, "nvmlDeviceGetPciInfo_v2");
    if (!api->init || !api->shutdown || !api->count || !api->handleByIndex || api->init() != 0) {
        ::dlclose(handle);
        return nullptr;
    }
    return std::unique_ptr<NVML>(new NVML(handle, std::move(api)));
}

NVML::NVML(void* handle, std::unique_ptr<Api> api) : m_handle(handle), m_api(std::move(api)) {}

NVML::~NVML()
{
    m_api->shutdown();
    ::dlclose(m_handle);
}

std::vector<NVML::Device> NVML::devices()
{
    std::vector<Device> out;
    unsigned count = 0;
    if (m_api->count(&count) != 0)
        return out;
    for (unsigned i = 0; i < count && i < 64; ++i) {
        DeviceHandle handle = nullptr;
        if (m_api->handleByIndex(i, &handle) != 0)
            continue;
        Device device;
        if (i < m_names.size()) {
            device.name = m_names[i];
        } else {
            char name[96] = {};
            if (m_api->name && m_api->name(handle, name, sizeof name - 1) == 0)
                device.name = QString::fromUtf8(name);
            m_names.resize(i + 1);
            m_names[i] = device.name;
        }
        PciInfo pci{};
        if (m_api->pciInfo && m_api->pciInfo(handle, &pci) == 0) {
            char slot[32];
            std::snprintf(slot, sizeof slot, "%04x:%02x:%02x.0", pci.domain, pci.bus, pci.device);
            device.pciSlot = QString::fromLatin1(slot);
        }
        Utilization utilization{};
        if (m_api->utilization && m_api->utilization(handle, &utilization) == 0)
            device.utilization = double(utilization.gpu);
        MemoryInfo memory{};
        if (m_api->memory && m_api->memory(handle, &memory) == 0)
            device.memoryUsed = double(memory.used);
        out.push_back(std::move(device));
    }
    return out;
}

} // namespace pulsebar
