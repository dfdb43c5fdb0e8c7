# Wireless link facts come from the kernel's nl80211 interface through libnl-genl (libnl-genl-3-dev).
if(NOT PULSEBAR_PLATFORM_DIR STREQUAL "platform/linux")
  return()
endif()
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBNL_GENL REQUIRED IMPORTED_TARGET libnl-genl-3.0)
target_link_libraries(pulsebar_core PUBLIC PkgConfig::LIBNL_GENL)
