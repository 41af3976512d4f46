# SPDX-License-Identifier: MIT
# All that is installed, component by component.
file(REMOVE_RECURSE "${PREFIX}")
foreach(component runtime dev tools)
  execute_process(
    COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix "${PREFIX}" --component ${component}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
