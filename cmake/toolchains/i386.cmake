# SPDX-License-Identifier: MIT
# 32-bit x86 with the host's own compilers and -m32 (g++-multilib). Not a
# cross build: the machine runs what it builds, so tests run as usual.
set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_EXE_LINKER_FLAGS_INIT -m32)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -m32)
set(CMAKE_MODULE_LINKER_FLAGS_INIT -m32)

# Look for libraries in the 32-bit directories, never the 64-bit ones.
set_property(GLOBAL PROPERTY FIND_LIBRARY_USE_LIB32_PATHS ON)
set_property(GLOBAL PROPERTY FIND_LIBRARY_USE_LIB64_PATHS OFF)

# Checked once the compiler is known (CMakeLists.txt): -m32 must have taken.
set(TESSIVA_EXPECTED_SIZEOF_VOID_P 4)
# pkg-config likewise: only the 32-bit .pc files (there is no 32-bit
# libsystemd on the machine, so the D-Bus parts are left out).
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig")
