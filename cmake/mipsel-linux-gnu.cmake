# SPDX-License-Identifier: MIT
# The target ABI with Debian's cross compiler; programs run under qemu-mipsel.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE mipsel-linux-gnu)
# Without -L: the target's loader is installed under its multiarch name.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# The cross compiler's C++ runtime lies where the target's loader does not look.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static-libstdc++)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/mipsel-linux-gnu/pkgconfig:/usr/share/pkgconfig)
