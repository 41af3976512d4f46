# SPDX-License-Identifier: MIT
# LIBRARY calls none of the functions in LIST through the dynamic linker, which would
# take a module's function of the same name.  Variables are bound at run time: a
# program's copy of them is the one that counts.

execute_process(COMMAND ${READELF} --relocs --wide ${LIBRARY}
  OUTPUT_VARIABLE relocations COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]*(JUMP_SLO|GLOB_DAT|_REL32|_GLOB)[^\n]*" bound "${relocations}")
file(STRINGS ${LIST} names REGEX "^[^#]")
list(FILTER names EXCLUDE REGEX "^g_")
foreach(name IN LISTS names)
  if(bound MATCHES " ${name}(@| |;|$)")
    message(SEND_ERROR "${name} is bound at run time")
  endif()
endforeach()
list(LENGTH bound count)
message(STATUS "${count} names bound at run time")
