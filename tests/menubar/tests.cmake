# X11 key grabs are tested by faking key presses through the XTEST extension.
pkg_check_modules(XCB_XTEST REQUIRED IMPORTED_TARGET xcb-xtest)
target_link_libraries(test_menubar PRIVATE PkgConfig::XCB_XTEST)

# The tray tests need a real X server and a real tray host: the script starts Xvfb and trayer and runs
# the Tray* cases of test_menubar inside them (elsewhere those cases skip themselves).
add_test(NAME MenuBar.TrayHostUnderXvfb
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/menubar/run_with_tray_host.sh $<TARGET_FILE:test_menubar>)
set_tests_properties(MenuBar.TrayHostUnderXvfb PROPERTIES
  TIMEOUT 120
  ENVIRONMENT "LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp;ASAN_OPTIONS=detect_leaks=1")

# The StatusNotifierItem tests run the built pulsebar against real hosts (status-notifier-watcher and
# gtk-sni-tray) on a private session bus and X server.
add_test(NAME MenuBar.StatusNotifierHostUnderXvfb
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/menubar/run_with_sni_host.sh $<TARGET_FILE:test_menubar>)
set_tests_properties(MenuBar.StatusNotifierHostUnderXvfb PROPERTIES
  TIMEOUT 180
  ENVIRONMENT "LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp;ASAN_OPTIONS=detect_leaks=1")
