# SPDX-License-Identifier: MIT
# Installs into PREFIX, moves the installation, and runs zanctl and zansim: they find the
# library without LD_LIBRARY_PATH, relative to themselves.
include(${CMAKE_CURRENT_LIST_DIR}/consumer/install.cmake)

set(moved "${PREFIX}, moved")
file(REMOVE_RECURSE "${moved}")
file(RENAME "${PREFIX}" "${moved}")
set(ENV{LD_LIBRARY_PATH})
separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
foreach(program zanctl zansim)
  execute_process(COMMAND ${emulator} "${moved}/${BINDIR}/${program}" --version
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  if(NOT output STREQUAL "${program} ${VERSION}\n")
    message(FATAL_ERROR "${program} --version printed\n${output}")
  endif()
endforeach()

# It is the installed library that zanctl has: without it, zanctl does not start.
file(REMOVE_RECURSE "${moved}/${LIBDIR}")
execute_process(COMMAND ${emulator} "${moved}/${BINDIR}/zanctl" --version
  RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE errors)
if(result EQUAL 0 OR NOT errors MATCHES "libzan[.]so[.]")
  message(FATAL_ERROR "zanctl without the library: exit ${result}, ${errors}")
endif()

# The path has $ORIGIN alone: no directory of the build machine.
execute_process(COMMAND ${READELF} -d "${moved}/${BINDIR}/zanctl"
  OUTPUT_VARIABLE section COMMAND_ERROR_IS_FATAL ANY)
if(NOT section MATCHES "\\(RUNPATH\\)[^\n]*\\[[$]ORIGIN/[.][.]/[^]:]*\\]")
  message(FATAL_ERROR "zanctl has no RUNPATH relative to itself:\n${section}")
endif()
