# SPDX-License-Identifier: MIT
# Configures the sources for another machine, or inside another project, where nothing
# is at hand that only the programs need: the library is what is built.
file(REMOVE_RECURSE ${BUILD})
if(TOOLCHAIN)
  set(compiler -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
else()
  set(compiler -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
endif()
if(PLACE STREQUAL "cross_compiled")
  # Naming the system makes it another one.
  set(source -S ${ROOT} -DCMAKE_SYSTEM_NAME=Linux)
else()
  set(source -S ${SOURCE}/subproject -DZAN=${ROOT})
endif()
execute_process(
  COMMAND ${CMAKE_COMMAND} ${source} -B ${BUILD} -G ${GENERATOR} ${compiler}
    -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON
  COMMAND_ERROR_IS_FATAL ANY)
load_cache(${BUILD} READ_WITH_PREFIX cached_ ZAN_BUILD_TOOLS ZAN_BUILD_EXAMPLES)
foreach(option ZAN_BUILD_TOOLS ZAN_BUILD_EXAMPLES)
  if(cached_${option})
    message(FATAL_ERROR "${option} is ${cached_${option}}")
  endif()
endforeach()
