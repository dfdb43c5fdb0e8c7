#pragma once

#include "monitors/gpu_monitor.h"
#include "platform/linux/device_class_listing.h"
#include "platform/linux/nvml.h"
#include "platform/linux/rooted_file_reader.h"

#include <functional>
#include <map>
#include <string>

namespace pulsebar {

// The DRM cards of sys/class/drm in card order. amdgpu reports its load in sysfs; NVIDIA cards are
// read through NVML; every other card exposes no load and reads 0.
class LinuxGPUReader : public GPUReader {
public:
    using NVMLLoader = std::function<std::unique_ptr<NVML>()>;

    explicit LinuxGPUReader(RootedFileReader sysfs, NVMLLoader loadNVML = [] { return NVML::open(); });
    ~LinuxGPUReader() override;

    std::vector<GPUReading> read() override;

private:
    // What cannot change while a card exists, looked up once.
    struct Card {
        std::string driver;
        std::string pciSlot; // "0000:03:00", without the function number
        std::optional<QString> model; // from pci.ids
    };

    const Card& card(const std::string& name);
    std::optional<QString> lookUpModel(const std::string& cardPath);
    static std::string slotWithoutFunction(std::string_view slot);

    RootedFileReader m_sysfs;
    DeviceClassListing m_drm;
    NVMLLoader m_loadNVML;
    bool m_triedNVML = false;
    std::unique_ptr<NVML> m_nvml;
    std::map<std::string, Card> m_cards;
    std::optional<std::string> m_pciIds; // loaded for a lookup, dropped after the sample
};

} // namespace pulsebar
