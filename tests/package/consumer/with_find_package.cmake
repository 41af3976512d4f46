# SPDX-License-Identifier: MIT
# Configures, builds and runs the project of one language against the package; with
# SHARED_ALONE, where cJSON's package is not to be had.
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

file(REMOVE_RECURSE ${BUILD})
if(TOOLCHAIN)
  set(compiler -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
else()
  set(compiler -DCMAKE_${LANGUAGE}_COMPILER=${COMPILER})
endif()
set(environment)
if(SHARED_ALONE)
  set(environment -DSHARED_ALONE=ON -DCMAKE_DISABLE_FIND_PACKAGE_cJSON=ON)
endif()
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${SOURCE}/project -B ${BUILD} -G ${GENERATOR} ${compiler}
    ${environment}
    -DCMAKE_PREFIX_PATH=${PREFIX} -DLANGUAGE=${LANGUAGE} -DWANTED=${VERSION}
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD} COMMAND_ERROR_IS_FATAL ANY)
run_consumer(${BUILD}/shared)
if(NOT SHARED_ALONE)
  run_consumer(${BUILD}/static)
endif()
