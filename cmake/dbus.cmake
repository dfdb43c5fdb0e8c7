# The tray items answer the session bus on the main thread through libdbus (libdbus-1-dev), the
# library QtDBus itself is built on, so the process loads nothing new for them.
if(NOT PULSEBAR_PLATFORM_DIR STREQUAL "platform/linux")
  return()
endif()
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBDBUS REQUIRED IMPORTED_TARGET dbus-1)
target_link_libraries(pulsebar_core PUBLIC PkgConfig::LIBDBUS)
