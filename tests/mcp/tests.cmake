# MCP tests that are not GoogleTest cases: the bounded fuzz run and the official TypeScript SDK client.

if(TARGET fuzz_mcp_handle)
  set(mcp_fuzz_corpus ${CMAKE_CURRENT_BINARY_DIR}/mcp-fuzz-corpus)
  file(MAKE_DIRECTORY ${mcp_fuzz_corpus})
  # New inputs go to the first folder (in the build tree); the seeds in the source tree are only read.
  add_test(NAME McpFuzzHandle
           COMMAND fuzz_mcp_handle -max_total_time=30 -max_len=4096 -timeout=10 -print_final_stats=1
                   ${mcp_fuzz_corpus} ${CMAKE_CURRENT_SOURCE_DIR}/mcp/corpus)
  set_tests_properties(McpFuzzHandle PROPERTIES
    TIMEOUT 120
    ENVIRONMENT "PULSEBAR_SYSROOT=${CMAKE_CURRENT_SOURCE_DIR}/fixtures/mcp/sysroot;LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp;QT_QPA_PLATFORM=offscreen")
endif()
