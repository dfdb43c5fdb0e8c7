# libFuzzer targets (clang only). Only the harness and the code under test carry coverage
# instrumentation; everything else comes from pulsebar_core as already built, so the project is not
# compiled a second time.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT PULSEBAR_TESTS)
  return()
endif()

# The MCP sources are compiled once more with coverage so the fuzzer can steer into their branches;
# their objects come first on the link line, so pulsebar_core's copies of them are never pulled in.
file(GLOB PULSEBAR_FUZZ_MCP_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/mcp/*.cpp)
add_executable(fuzz_mcp_handle ${CMAKE_SOURCE_DIR}/tests/mcp/fuzz/mcp_handle_fuzz.cpp ${PULSEBAR_FUZZ_MCP_SOURCES})
set_target_properties(fuzz_mcp_handle PROPERTIES AUTOMOC OFF)
target_compile_options(fuzz_mcp_handle PRIVATE -fsanitize=fuzzer-no-link)
target_link_options(fuzz_mcp_handle PRIVATE -fsanitize=fuzzer)
target_link_libraries(fuzz_mcp_handle PRIVATE pulsebar_core)
