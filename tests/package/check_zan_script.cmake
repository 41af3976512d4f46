# SPDX-License-Identifier: MIT
# PROJECT/zan: its help, its usage errors, and the commands that the Makefile gives it.

# run(EXIT-CODE [ARGUMENT...]): sets output and errors.
function(run expected)
  execute_process(COMMAND ${PROJECT}/zan ${ARGN}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
  if(NOT result EQUAL expected)
    message(SEND_ERROR "./zan ${ARGN}: exit code ${result}, not ${expected}: ${errors}")
  endif()
  set(output "${output}" PARENT_SCOPE)
  set(errors "${errors}" PARENT_SCOPE)
endfunction()

function(expect_error message)
  run(2 ${ARGN})
  if(NOT output STREQUAL "" OR NOT errors STREQUAL "zan: ${message}\nTry: ./zan --help\n")
    message(SEND_ERROR "./zan ${ARGN} printed: ${output}${errors}")
  endif()
endfunction()

run(0 --help)
set(help "${output}")
foreach(arguments help -h "")
  run(0 ${arguments})
  if(NOT output STREQUAL help)
    message(SEND_ERROR "./zan ${arguments} does not print the help")
  endif()
endforeach()
expect_error("unknown command 'tset'" tset)
expect_error("unknown suite 'bord'" test bord)
expect_error("too many arguments for 'demo'" demo dev)
expect_error("too many arguments for 'test'" test dev board)

file(STRINGS ${PROJECT}/Makefile lines REGEX "^\t./zan ")
list(LENGTH lines count)
if(count LESS 9)
  message(SEND_ERROR "the Makefile calls ./zan ${count} times")
endif()
foreach(line ${lines})
  string(REGEX REPLACE "^.* " "" last ${line}) # a command or a suite
  if(NOT help MATCHES "\n  ${last} ")
    message(SEND_ERROR "the help does not list ${line}")
  endif()
endforeach()
