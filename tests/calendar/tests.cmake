# A helper that adds events to Evolution Data Server's personal calendar through libecal, as a calendar
# application would, for the test that reads them back through a real registry and calendar factory.
# Built only where libecal's development files are installed; the test skips itself without it.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBECAL IMPORTED_TARGET libecal-2.0)
if(LIBECAL_FOUND AND TARGET test_calendar)
  add_executable(eds_calendar_writer ${CMAKE_CURRENT_LIST_DIR}/eds_calendar_writer.c)
  target_link_libraries(eds_calendar_writer PRIVATE PkgConfig::LIBECAL)
  add_dependencies(test_calendar eds_calendar_writer)
  target_compile_definitions(test_calendar PRIVATE EDS_CALENDAR_WRITER="$<TARGET_FILE:eds_calendar_writer>")
endif()
