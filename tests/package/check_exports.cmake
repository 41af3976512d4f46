# SPDX-License-Identifier: MIT
# The names that LIBRARY exports are those of LIST, and those that HEADER declares.

function(compare what actual expected)
  set(unexpected ${actual})
  set(missing ${expected})
  list(REMOVE_ITEM unexpected ${expected})
  list(REMOVE_ITEM missing ${actual})
  if(unexpected OR missing)
    message(SEND_ERROR "${what}: too many: [${unexpected}], missing: [${missing}]")
  endif()
endfunction()

execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
  OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^ \n]+\n" exported "${symbols}")
list(TRANSFORM exported STRIP)
list(SORT exported)

file(STRINGS ${LIST} listed REGEX "^[^#]")
set(sorted ${listed})
list(SORT sorted)
if(NOT sorted STREQUAL listed)
  message(SEND_ERROR "${LIST} is not sorted")
endif()

# A declaration is ZAN_API, a type, the name, and what makes it a function, a
# variable or an array.
file(READ ${HEADER} header)
string(REPLACE ";" "\n" header "${header}")
string(REGEX MATCHALL "\n(extern )?ZAN_API [^(\n[]+" declarations "${header}")
set(declared)
foreach(declaration IN LISTS declarations)
  string(REGEX MATCH "[a-z_0-9]+$" name "${declaration}")
  list(APPEND declared ${name})
endforeach()
list(SORT declared)

compare("exported names against ${LIST}" "${exported}" "${listed}")
compare("exported names against the header" "${exported}" "${declared}")
list(LENGTH exported count)
if(count LESS 10)
  message(SEND_ERROR "only ${count} names found: ${exported}")
endif()
message(STATUS "${count} names")
