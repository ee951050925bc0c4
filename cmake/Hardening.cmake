# SPDX-License-Identifier: MIT
# The hardening of Debian's packages (dpkg-buildflags with hardening=+all),
# for the builds that measure or show what ships: the release, demo and
# package presets turn TESSIVA_HARDENING on, so the benchmarks run the code
# the packages hold. The Debian package build itself leaves it off and takes
# the same flags from dpkg-buildflags.
option(TESSIVA_HARDENING "Build with Debian's hardening flags (fortify, stack protector, relro, bindnow, PIE)" OFF)
if(TESSIVA_HARDENING)
    if(NOT TESSIVA_SANITIZE STREQUAL "")
        message(FATAL_ERROR "TESSIVA_HARDENING and TESSIVA_SANITIZE do not go together")
    endif()
    # glibc's fortified functions need an optimised build; it warns without.
    if(CMAKE_BUILD_TYPE STREQUAL "Debug")
        message(FATAL_ERROR "TESSIVA_HARDENING needs an optimised build, not Debug")
    endif()
    include(CheckPIESupported)
    check_pie_supported(LANGUAGES CXX)
    set(CMAKE_POSITION_INDEPENDENT_CODE ON)
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong
                        -fstack-clash-protection -Wformat -Werror=format-security)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
        add_compile_options(-fcf-protection)
    endif()
    add_link_options(LINKER:-z,relro LINKER:-z,now)
endif()
