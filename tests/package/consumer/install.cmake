# SPDX-License-Identifier: MIT
# What a user of the library installs; the tools are a component of their own.
file(REMOVE_RECURSE ${PREFIX})
foreach(component runtime dev)
  execute_process(
    COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX} --component ${component}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
