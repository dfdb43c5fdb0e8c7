# Global shortcuts on X11 grab keys through xcb (the connection Qt already has); the keysym table turns
# a stored keysym into the keyboard's key code (src/platform/linux/gui/).
if(NOT PULSEBAR_PLATFORM_DIR STREQUAL "platform/linux")
  return()
endif()
find_package(PkgConfig REQUIRED)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb xcb-keysyms)
target_link_libraries(pulsebar_ui PUBLIC PkgConfig::XCB)
