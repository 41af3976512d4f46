# SPDX-License-Identifier: MIT
# What every target of this project is compiled with.

set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

add_library(zan_compile INTERFACE)
target_compile_definitions(zan_compile INTERFACE _GNU_SOURCE)
target_compile_options(zan_compile INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
if(ZAN_SANITIZE)
  target_compile_options(zan_compile INTERFACE
    -fsanitize=${ZAN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zan_compile INTERFACE -fsanitize=${ZAN_SANITIZE})
endif()
