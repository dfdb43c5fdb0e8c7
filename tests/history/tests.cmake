# A helper process that writes into a history store, for the tests of two processes sharing the file
# and of a writer killed in the middle of a flush.
add_executable(history_writer ${CMAKE_CURRENT_LIST_DIR}/history_writer.cpp)
target_link_libraries(history_writer PRIVATE pulsebar_core)
if(TARGET test_history)
  add_dependencies(test_history history_writer)
  target_compile_definitions(test_history PRIVATE HISTORY_WRITER="$<TARGET_FILE:history_writer>")
endif()
