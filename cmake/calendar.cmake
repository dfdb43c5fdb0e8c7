# Calendar files are parsed and their recurrences expanded with libical (libical-dev). Evolution Data
# Server's libecal is not linked: the platform folder opens it at run time, where it is installed.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBICAL REQUIRED IMPORTED_TARGET libical)
target_link_libraries(pulsebar_core PUBLIC PkgConfig::LIBICAL)
