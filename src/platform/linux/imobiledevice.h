#pragma once

#include "devices/mobile_device_api.h"

#include <memory>

namespace pulsebar {

// The device table over libimobiledevice and libplist, opened at run time so that Pulsebar starts and
// works without them: nullptr when a library cannot be opened or lacks a required entry point. The
// libraries stay loaded for the life of the process (their threads may outlive any one user).
std::shared_ptr<const MobileDeviceAPI> loadMobileDeviceAPI(const char* deviceLibrary = "libimobiledevice-1.0.so.6",
                                                           const char* plistLibrary = "libplist-2.0.so.3");

// The table of the installed libraries, loaded once and shared by every caller.
std::shared_ptr<const MobileDeviceAPI> systemMobileDeviceAPI();

} // namespace pulsebar
