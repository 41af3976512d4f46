# SPDX-License-Identifier: MIT
include(GoogleTest)

# Test programs stay out of any sandboxed directory and keep their symbols.
set(ZAN_SANDBOX ${PROJECT_SOURCE_DIR}/scripts/sandbox)

# Test code is compiled for a short build: optimised, with all debug information
# and with checks for undefined behaviour it took most of the time. The library,
# zansim and zanctl have all three. To be linked behind zan_compile.
add_library(zan_test_compile INTERFACE)
target_compile_options(zan_test_compile INTERFACE -O0 $<$<CONFIG:Debug>:-g1>)
if(ZAN_SANITIZE MATCHES undefined)
  target_compile_options(zan_test_compile INTERFACE -fno-sanitize=undefined)
endif()

# What the build preset "thread" builds: the programs labelled "thread", with what they need.
add_custom_target(thread_tests)

# zan_library_sources(VARIABLE FOLDER...)
#
# The library's sources of these folders of src/, for tests that compile them for another
# machine or in another way. Link such a program with --gc-sections: it may not have what
# the functions that it does not call need.
function(zan_library_sources variable)
  get_target_property(sources zan_objects SOURCES)
  list(JOIN ARGN "|" folders)
  list(FILTER sources INCLUDE REGEX "^(${folders})/")
  list(TRANSFORM sources PREPEND ${PROJECT_SOURCE_DIR}/src/)
  set(${variable} ${sources} PARENT_SCOPE)
endfunction()

# zan_add_test(NAME SOURCES... [LINK targets...] [LABELS labels...])
#
# One GoogleTest program per tested file.  CTest runs every case in a process
# and a sandbox of its own: the library's state is process-wide, and the queues
# and key files live at fixed places.
function(zan_add_test name)
  cmake_parse_arguments(arg "" "" "LINK;LABELS" ${ARGN})
  add_executable(${name} ${arg_UNPARSED_ARGUMENTS} $<TARGET_OBJECTS:zan_test_isolation>)
  target_link_libraries(${name} PRIVATE
    zan_compile zan_test_compile zan_test_support ${arg_LINK} GTest::gmock_main)
  # The first program's are for all; those with C sources do without.
  get_property(precompiled GLOBAL PROPERTY zan_precompiled_headers)
  if(NOT precompiled)
    target_precompile_headers(${name} PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
    set_property(GLOBAL PROPERTY zan_precompiled_headers ${name})
  elseif(NOT "${arg_UNPARSED_ARGUMENTS}" MATCHES "[.]c(;|$)")
    target_precompile_headers(${name} REUSE_FROM ${precompiled})
  endif()
  set_target_properties(${name} PROPERTIES
    CROSSCOMPILING_EMULATOR "${ZAN_SANDBOX};--;${CMAKE_CROSSCOMPILING_EMULATOR}")
  if("thread" IN_LIST arg_LABELS)
    add_dependencies(thread_tests ${name})
  elseif(ZAN_SANITIZE STREQUAL "thread")
    return()
  endif()
  gtest_discover_tests(${name}
    TEST_PREFIX ${name}.
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${arg_LABELS}")
  # All cases in one process as well: none may depend on being the first one.
  if(NOT "nightly" IN_LIST arg_LABELS)
    add_test(NAME whole.${name}
      COMMAND ${ZAN_SANDBOX} -- ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}>)
    set_tests_properties(whole.${name} PROPERTIES LABELS whole)
  endif()
endfunction()
