#pragma once

#include "monitors/machine_facts.h"
#include "platform/linux/rooted_file_reader.h"

#include <string_view>

namespace pulsebar {

// Machine facts from the firmware's DMI table, the device tree, os-release, the kernel and the
// thermal zones of the thermal framework.
class LinuxMachineReader : public MachineReader {
public:
    explicit LinuxMachineReader(RootedFileReader fs);

    std::optional<QString> readModel() override;
    std::optional<QString> readOSVersion() override;
    std::vector<ThermalZoneReading> readThermalZones() override;

    // The value of KEY=value in an os-release text, unquoted; absent when missing or empty.
    static std::optional<QString> osReleaseValue(std::string_view text, std::string_view key);

private:
    RootedFileReader m_fs;
};

} // namespace pulsebar
