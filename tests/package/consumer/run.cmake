# SPDX-License-Identifier: MIT
# run_consumer(PROGRAM): runs it beside the installed library and compares what it
# prints.
function(run_consumer program)
  separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${LIBDIR} ${emulator} ${program}
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  set(expected "zan ${VERSION}: [trimmed] 7 -1 {\"Action\":\"scan\"}\n")
  if(NOT output STREQUAL expected)
    message(FATAL_ERROR "${program} printed\n${output}instead of\n${expected}")
  endif()
endfunction()
