# The sun and moon oracle: Pulsebar's SunCalc against suncalc 1.9.0 and astronomy-engine from npm,
# pinned in tests/sky/package-lock.json and installed into that folder (node_modules is ignored by git).
add_executable(sky_values ${CMAKE_CURRENT_SOURCE_DIR}/sky/sky_values.cpp)
target_link_libraries(sky_values PRIVATE pulsebar_core)

find_program(NODE_PROGRAM node)
find_program(NPM_PROGRAM npm)
if(NODE_PROGRAM AND NPM_PROGRAM)
  set(sky_oracle_dir ${CMAKE_CURRENT_SOURCE_DIR}/sky)
  add_test(NAME SkyOracleInstall
           COMMAND sh -c "if [ node_modules/.package-lock.json -nt package-lock.json ]; then exit 0; fi; exec '${NPM_PROGRAM}' ci --no-audit --no-fund --loglevel=error"
           WORKING_DIRECTORY ${sky_oracle_dir})
  set_tests_properties(SkyOracleInstall PROPERTIES FIXTURES_SETUP SkyOracle TIMEOUT 600)
  add_test(NAME SkyOracle
           COMMAND ${NODE_PROGRAM} oracle.test.mjs $<TARGET_FILE:sky_values>
           WORKING_DIRECTORY ${sky_oracle_dir})
  set_tests_properties(SkyOracle PROPERTIES
    FIXTURES_REQUIRED SkyOracle
    TIMEOUT 300
    ENVIRONMENT "TZ=America/New_York;LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp")
endif()
