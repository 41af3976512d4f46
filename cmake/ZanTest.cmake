# SPDX-License-Identifier: MIT
include(GoogleTest)

# Test programs stay out of any sandboxed directory and keep their symbols.
set(ZAN_SANDBOX ${PROJECT_SOURCE_DIR}/scripts/sandbox)

# zan_add_test(NAME SOURCES... [LINK targets...] [LABELS labels...])
#
# One GoogleTest program per tested file.  CTest runs every case in a process
# and a sandbox of its own: the library's state is process-wide, and the queues
# and key files live at fixed places.
function(zan_add_test name)
  cmake_parse_arguments(arg "" "" "LINK;LABELS" ${ARGN})
  add_executable(${name} ${arg_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE zan_compile zan_test_support ${arg_LINK} GTest::gmock_main)
  # Optimising test code would take most of the build's time.
  target_compile_options(${name} PRIVATE -O0)
  set_target_properties(${name} PROPERTIES
    CROSSCOMPILING_EMULATOR "${ZAN_SANDBOX};--;${CMAKE_CROSSCOMPILING_EMULATOR}")
  gtest_discover_tests(${name}
    TEST_PREFIX ${name}.
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${arg_LABELS}")
endfunction()
