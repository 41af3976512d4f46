# SPDX-License-Identifier: MIT
# Builds and runs the C program with nothing but what pkg-config says, against the
# shared library, which needs no package of another, and against the static one.
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

set(ENV{PKG_CONFIG_PATH})
set(ENV{PKG_CONFIG_LIBDIR} ${LIBDIR}/pkgconfig)

function(pkg_config variable)
  execute_process(COMMAND ${PKG_CONFIG} ${ARGN} zan OUTPUT_VARIABLE output
    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(output UNIX_COMMAND "${output}")
  set(${variable} ${output} PARENT_SCOPE)
endfunction()

pkg_config(version --modversion)
if(NOT version STREQUAL VERSION)
  message(FATAL_ERROR "pkg-config has version ${version}, not ${VERSION}")
endif()
pkg_config(cflags --cflags)
pkg_config(shared_flags --libs)
pkg_config(static_flags --static --libs)
list(TRANSFORM static_flags REPLACE "^-lzan$" "-l:libzan.a")

file(REMOVE_RECURSE ${BUILD})
file(MAKE_DIRECTORY ${BUILD})
foreach(kind shared static)
  execute_process(
    COMMAND ${COMPILER} -std=c99 -Wall -Wextra -Wpedantic -Werror ${cflags}
      ${SOURCE}/consumer.c -o ${BUILD}/${kind} ${${kind}_flags}
    COMMAND_ERROR_IS_FATAL ANY COMMAND_ECHO STDOUT)
  run_consumer(${BUILD}/${kind})
endforeach()
