# SPDX-License-Identifier: MIT
# Configures, builds and runs the project of one language against the package.
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

file(REMOVE_RECURSE ${BUILD})
if(TOOLCHAIN)
  set(compiler -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
else()
  set(compiler -DCMAKE_${LANGUAGE}_COMPILER=${COMPILER})
endif()
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${SOURCE}/project -B ${BUILD} -G ${GENERATOR} ${compiler}
    -DCMAKE_PREFIX_PATH=${PREFIX} -DLANGUAGE=${LANGUAGE} -DWANTED=${VERSION}
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD} COMMAND_ERROR_IS_FATAL ANY)
run_consumer(${BUILD}/shared)
run_consumer(${BUILD}/static)
