# A stand-in NVIDIA management library, so the GPU reader's dlopen path runs in the tests.
add_library(fake_nvml SHARED ${CMAKE_CURRENT_LIST_DIR}/fake_nvml.c)
set_target_properties(fake_nvml PROPERTIES OUTPUT_NAME fake-nvidia-ml)
if(TARGET test_monitors)
  add_dependencies(test_monitors fake_nvml)
  target_compile_definitions(test_monitors PRIVATE FAKE_NVML_LIBRARY="$<TARGET_FILE:fake_nvml>")
endif()
