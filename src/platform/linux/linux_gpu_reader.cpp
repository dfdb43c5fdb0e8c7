#include "platform/linux/linux_gpu_reader.h"

#include "platform/linux/proc_parse.h"

#include <algorithm>
#include <charconv>

namespace pulsebar {

namespace {

// "card0" but not the connectors "card0-DP-1" nor the render nodes.
std::optional<int> cardNumber(std::string_view name)
{
    if (name.substr(0, 4) != "card" || name.size() == 4)
        return std::nullopt;
    const auto number = SysText::toInt(name.substr(4));
    return number && *number >= 0 ? std::optional<int>(int(*number)) : std::nullopt;
}

std::string_view baseName(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::optional<uint32_t> hexId(const std::optional<std::string>& text)
{
    if (!text)
        return std::nullopt;
    std::string_view value = *text;
    if (value.substr(0, 2) == "0x")
        value.remove_prefix(2);
    uint32_t id = 0;
    const auto [end, ec] = std::from_chars(value.data(), value.data() + value.size(), id, 16);
    if (ec != std::errc() || end != value.data() + value.size() || value.empty())
        return std::nullopt;
    return id;
}

} // namespace

LinuxGPUReader::LinuxGPUReader(RootedFileReader sysfs, NVMLLoader loadNVML)
    : m_sysfs(std::move(sysfs)), m_drm(m_sysfs, "sys/class/drm"), m_loadNVML(std::move(loadNVML))
{
}

LinuxGPUReader::~LinuxGPUReader() = default;

std::string LinuxGPUReader::slotWithoutFunction(std::string_view slot)
{
    std::string out(slot.substr(0, slot.rfind('.')));
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return out;
}

std::optional<QString> LinuxGPUReader::lookUpModel(const std::string& cardPath)
{
    const auto vendor = hexId(m_sysfs.readLine(cardPath + "/device/vendor"));
    const auto device = hexId(m_sysfs.readLine(cardPath + "/device/device"));
    if (!vendor || !device)
        return std::nullopt;
    if (!m_pciIds) {
        for (const char* path : {"usr/share/hwdata/pci.ids", "usr/share/misc/pci.ids"})
            if ((m_pciIds = m_sysfs.readText(path, 8 << 20)))
                break;
        if (!m_pciIds)
            m_pciIds = std::string();
    }
    return ProcParse::pciDeviceName(*m_pciIds, *vendor, *device);
}

const LinuxGPUReader::Card& LinuxGPUReader::card(const std::string& name)
{
    const auto found = m_cards.find(name);
    if (found != m_cards.end())
        return found->second;
    const std::string path = "sys/class/drm/" + name;
    Card card;
    if (const auto driver = m_sysfs.readLink(path + "/device/driver"))
        card.driver = std::string(baseName(*driver));
    if (const auto device = m_sysfs.readLink(path + "/device"))
        card.pciSlot = slotWithoutFunction(baseName(*device));
    card.model = lookUpModel(path);
    return m_cards.emplace(name, std::move(card)).first->second;
}

std::vector<GPUReading> LinuxGPUReader::read()
{
    if (!m_triedNVML) {
        m_triedNVML = true;
        if (m_loadNVML)
            m_nvml = m_loadNVML();
    }
    std::vector<NVML::Device> nvidia = m_nvml ? m_nvml->devices() : std::vector<NVML::Device>();
    std::vector<bool> nvidiaMatched(nvidia.size(), false);

    std::vector<std::pair<int, std::string>> cards;
    for (const std::string& entry : m_drm.entries())
        if (const auto number = cardNumber(entry))
            cards.emplace_back(*number, entry);
    std::sort(cards.begin(), cards.end());
    // Forget cards that went away, so a new card under a reused number is looked up afresh.
    for (auto it = m_cards.begin(); it != m_cards.end();)
        it = std::any_of(cards.begin(), cards.end(), [&](const auto& c) { return c.second == it->first; })
                 ? std::next(it) : m_cards.erase(it);

    std::vector<GPUReading> readings;
    for (const auto& [number, name] : cards) {
        const Card& info = card(name);
        GPUReading reading;
        reading.name = info.model;
        if (!reading.name && !info.driver.empty())
            reading.name = QString::fromStdString(info.driver);
        const std::string device = "sys/class/drm/" + name + "/device/";
        if (info.driver == "amdgpu") {
            reading.utilization = m_sysfs.readDouble(device + "gpu_busy_percent");
            if (const auto used = m_sysfs.readUnsigned(device + "mem_info_vram_used"))
                reading.memoryUsed = double(*used);
        }
        for (std::size_t i = 0; i < nvidia.size(); ++i) {
            if (nvidiaMatched[i] || !nvidia[i].pciSlot || info.pciSlot.empty()
                || slotWithoutFunction(nvidia[i].pciSlot->toStdString()) != info.pciSlot)
                continue;
            nvidiaMatched[i] = true;
            if (!nvidia[i].name.isEmpty())
                reading.name = nvidia[i].name;
            reading.utilization = nvidia[i].utilization;
            reading.memoryUsed = nvidia[i].memoryUsed;
            break;
        }
        readings.push_back(std::move(reading));
    }
    // NVIDIA devices without a DRM card (the DRM module is not loaded) still count.
    for (std::size_t i = 0; i < nvidia.size(); ++i) {
        if (nvidiaMatched[i])
            continue;
        GPUReading reading;
        if (!nvidia[i].name.isEmpty())
            reading.name = nvidia[i].name;
        reading.utilization = nvidia[i].utilization;
        reading.memoryUsed = nvidia[i].memoryUsed;
        readings.push_back(std::move(reading));
    }
    m_pciIds.reset();
    return readings;
}

} // namespace pulsebar
