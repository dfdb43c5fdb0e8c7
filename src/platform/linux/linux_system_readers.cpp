#include "platform/linux/linux_system_readers.h"

#include "monitors/smc.h"
#include "monitors/smc_sensor_source.h"
#include "platform/linux/hwmon_sensor_source.h"
#include "platform/linux/imobiledevice.h"
#include "platform/linux/linux_calendar_store.h"
#include "platform/linux/linux_cpu_reader.h"
#include "platform/linux/linux_disk_reader.h"
#include "platform/linux/linux_gpu_reader.h"
#include "platform/linux/linux_memory_reader.h"
#include "platform/linux/linux_network_reader.h"
#include "platform/linux/linux_process_reader.h"
#include "platform/linux/logind_power_assertions.h"
#include "platform/linux/machine_reader.h"
#include "platform/linux/power_supply_reader.h"

namespace pulsebar {

SystemReaders linuxSystemReaders(const RootedFileReader& root)
{
    SystemReaders readers;
    readers.cpu = std::make_unique<LinuxCPUReader>(root);
    readers.memory = std::make_unique<LinuxMemoryReader>(root);
    readers.processes = std::make_unique<LinuxProcessReader>(root);
    readers.gpu = std::make_unique<LinuxGPUReader>(root);
    readers.disks = std::make_unique<LinuxDiskReader>(root);
    readers.network = std::make_unique<LinuxNetworkReader>(root);
    if (SMC::shared().isOpen())
        readers.sensors = std::make_shared<SMCSensorSource>(SMC::shared());
    else
        readers.sensors = std::make_shared<HwmonSensorSource>(root);
    readers.battery = std::make_unique<PowerSupplyReader>(root, true);
    readers.machine = std::make_unique<LinuxMachineReader>(root);
    readers.powerAssertions = std::make_unique<LogindPowerAssertions>();
    return readers;
}

SystemReaders systemReaders()
{
    SystemReaders readers = linuxSystemReaders(RootedFileReader::fromEnvironment());
    // Devices are not files under the sysroot: a fixture tree has none, the running system has the
    // ones usbmuxd sees.
    readers.devices = systemMobileDeviceAPI();
    // Nor are calendars: they are the user's, found through the session and the XDG folders.
    readers.calendars = systemCalendarStore();
    return readers;
}

} // namespace pulsebar
