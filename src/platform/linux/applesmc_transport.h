#pragma once

#include "monitors/smc.h"
#include "platform/linux/rooted_file_reader.h"

#include <map>

namespace pulsebar {

// The controller of an Intel Mac through the applesmc driver's key-index files: writing an index to
// key_at_index selects a key, whose name, type, length and raw bytes the sibling files then show.
// Selecting writes to the device, which only root may do; for anyone else the transport is closed and
// the hwmon chip the driver also registers is read instead.
class AppleSMCTransport : public SMCTransport {
public:
    static constexpr std::string_view directory = "sys/devices/platform/applesmc.768";

    explicit AppleSMCTransport(RootedFileReader sysfs);

    bool isOpen() const override;
    std::optional<uint32_t> keyCount() override;
    std::optional<uint32_t> keyAt(uint32_t index) override;
    std::optional<SMCKeyInfo> keyInfo(uint32_t code) override;
    std::optional<std::vector<uint8_t>> readKey(uint32_t code, uint32_t size) override;

private:
    std::string file(std::string_view name) const;
    bool select(uint32_t index);
    std::optional<uint32_t> indexOf(uint32_t code);

    RootedFileReader m_sysfs;
    std::map<uint32_t, uint32_t> m_indexOf; // key code -> index, learnt while walking
};

} // namespace pulsebar
