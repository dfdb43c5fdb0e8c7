#pragma once

#include "calendar/calendar_store.h"
#include "core/keep_awake.h"
#include "devices/mobile_device_api.h"
#include "monitors/battery_monitor.h"
#include "monitors/cpu_monitor.h"
#include "monitors/disk_monitor.h"
#include "monitors/gpu_monitor.h"
#include "monitors/machine_facts.h"
#include "monitors/memory_monitor.h"
#include "monitors/network_reader.h"
#include "monitors/process_monitor.h"
#include "monitors/sensor_monitor.h"

#include <memory>

namespace pulsebar {

// Everything the hub needs from the operating system, one reader per area. The hub takes the record
// whole and hands each reader to the monitor or service that owns it; tests give it fakes, or the
// platform's readers over a fixture tree.
struct SystemReaders {
    std::unique_ptr<CPUReader> cpu;
    std::unique_ptr<MemoryReader> memory;
    std::unique_ptr<ProcessReader> processes;
    std::unique_ptr<GPUReader> gpu;
    std::unique_ptr<DiskReader> disks;
    std::unique_ptr<NetworkReader> network;
    std::shared_ptr<SensorSource> sensors;
    std::unique_ptr<BatteryReader> battery;
    std::unique_ptr<MachineReader> machine;
    std::unique_ptr<PowerAssertions> powerAssertions;
    // The phone and tablet library's entry points; nullptr where it is not installed.
    std::shared_ptr<const MobileDeviceAPI> devices;
    // The desktop's calendars; nullptr where there is no calendar store (then only the calendars added
    // in Settings are read).
    std::shared_ptr<CalendarStore> calendars;
};

// The readers of the running system. The platform's folder defines it (src/platform/linux/ on Linux):
// the one place that names every platform class.
SystemReaders systemReaders();

} // namespace pulsebar
