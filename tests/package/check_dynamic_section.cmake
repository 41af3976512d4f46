# SPDX-License-Identifier: MIT
# LIBRARY needs the C library and cJSON alone, and carries the header's version.

execute_process(COMMAND ${READELF} -d ${LIBRARY}
  OUTPUT_VARIABLE section COMMAND_ERROR_IS_FATAL ANY)

# Before glibc 2.34 threads lived in a library of their own; MIPS and others name
# the loader.
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*" needs "${section}")
if(NOT needs)
  message(SEND_ERROR "no needed libraries found in:\n${section}")
endif()
foreach(need IN LISTS needs)
  if(NOT need MATCHES "\\[(libc\\.so\\.6|libpthread\\.so\\.0|libcjson\\.so\\.1|ld[-.][^]]*)\\]")
    message(SEND_ERROR "the library needs more than the C library and cJSON: ${need}")
  endif()
endforeach()

file(STRINGS ${HEADER} version REGEX "^#define ZAN_VERSION_")
string(REGEX REPLACE "[^0-9]*([0-9]+)[^0-9]*([0-9]+)[^0-9]*([0-9]+).*" "\\1.\\2.\\3"
  version "${version}")
string(REGEX REPLACE "\\..*" "" major ${version})
if(NOT section MATCHES "\\(SONAME\\)[^\n]*\\[libzan\\.so\\.${major}\\]")
  message(SEND_ERROR "the soname is not libzan.so.${major}:\n${section}")
endif()
get_filename_component(name ${LIBRARY} NAME)
if(NOT name STREQUAL libzan.so.${version})
  message(SEND_ERROR "the file is ${name}, not libzan.so.${version}")
endif()
if(section MATCHES "\\((RPATH|RUNPATH|TEXTREL)\\)")
  message(SEND_ERROR "the library carries a search path or text relocations:\n${section}")
endif()
