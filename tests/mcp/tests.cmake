# MCP tests that are not GoogleTest cases: the bounded fuzz run and the official TypeScript SDK client.

if(TARGET fuzz_mcp_handle)
  set(mcp_fuzz_corpus ${CMAKE_CURRENT_BINARY_DIR}/mcp-fuzz-corpus)
  file(MAKE_DIRECTORY ${mcp_fuzz_corpus})
  # New inputs go to the first folder (in the build tree); the seeds in the source tree are only read.
  # A smaller quarantine keeps the run under a gigabyte of memory over some 400 000 inputs.
  add_test(NAME McpFuzzHandle
           COMMAND fuzz_mcp_handle -max_total_time=30 -max_len=4096 -timeout=10 -print_final_stats=1
                   ${mcp_fuzz_corpus} ${CMAKE_CURRENT_SOURCE_DIR}/mcp/corpus)
  set_tests_properties(McpFuzzHandle PROPERTIES
    TIMEOUT 120
    ENVIRONMENT "PULSEBAR_SYSROOT=${CMAKE_CURRENT_SOURCE_DIR}/fixtures/mcp/sysroot;PULSEBAR_IPIFY_URL=http://127.0.0.1:9/;PULSEBAR_OPEN_METEO_URL=http://127.0.0.1:9/;PULSEBAR_GEOCODING_URL=http://127.0.0.1:9/;PULSEBAR_IPAPI_URL=http://127.0.0.1:9/;LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp;ASAN_OPTIONS=quarantine_size_mb=64;QT_QPA_PLATFORM=offscreen")
endif()

# The official MCP TypeScript SDK, pinned in tests/mcp/sdk/package-lock.json, installed into that folder
# (node_modules there is ignored by git) unless the installed tree already matches the lock file.
find_program(NODE_PROGRAM node)
find_program(NPM_PROGRAM npm)
if(NODE_PROGRAM AND NPM_PROGRAM)
  set(mcp_sdk_dir ${CMAKE_CURRENT_SOURCE_DIR}/mcp/sdk)
  add_test(NAME McpSdkInstall
           COMMAND sh -c "if [ node_modules/.package-lock.json -nt package-lock.json ]; then exit 0; fi; exec '${NPM_PROGRAM}' ci --no-audit --no-fund --loglevel=error"
           WORKING_DIRECTORY ${mcp_sdk_dir})
  set_tests_properties(McpSdkInstall PROPERTIES FIXTURES_SETUP McpSdk TIMEOUT 600)
  add_test(NAME McpSdkClient
           COMMAND ${NODE_PROGRAM} client.test.mjs $<TARGET_FILE:pulsebar>
           WORKING_DIRECTORY ${mcp_sdk_dir})
  set_tests_properties(McpSdkClient PROPERTIES
    FIXTURES_REQUIRED McpSdk
    TIMEOUT 120
    ENVIRONMENT "LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp;ASAN_OPTIONS=detect_leaks=1")
endif()
