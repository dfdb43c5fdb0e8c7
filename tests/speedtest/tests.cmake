# The loopback responsiveness server's launcher joins the speed-test tests.
if(TARGET test_speedtest)
  target_sources(test_speedtest PRIVATE ${CMAKE_CURRENT_LIST_DIR}/responsiveness_server.cpp)
endif()
