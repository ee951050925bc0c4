# SPDX-License-Identifier: MIT
# The sanitizer a build runs under, chosen by TESSIVA_SANITIZE:
#   ""        none (the memcheck tests need this: valgrind and a sanitizer
#             runtime do not mix)
#   address   AddressSanitizer with UndefinedBehaviorSanitizer
#   thread    ThreadSanitizer
#   fuzzer    as address, with clang's libFuzzer coverage in every object;
#             the harnesses themselves link libFuzzer (fuzz/)
# The flags go to every target of Tessiva's own directories, tests and
# GoogleTest built from source included, and to nothing of a project that
# embeds it. Everything that depends on the sanitizer (the canaries, the
# memcheck tests, the consumer builds, --no-undefined) asks this option,
# never the compiler flags.
set(TESSIVA_SANITIZE "" CACHE STRING "Sanitizer to build with: empty, address, thread or fuzzer")
set_property(CACHE TESSIVA_SANITIZE PROPERTY STRINGS "" address thread fuzzer)

# A sanitizer given in the flags instead (a build directory configured
# before this option existed keeps them in its cache) would be on without
# anything here knowing: the memcheck tests would run it under valgrind.
foreach(flags IN ITEMS CMAKE_CXX_FLAGS CMAKE_EXE_LINKER_FLAGS CMAKE_SHARED_LINKER_FLAGS)
    if(${flags} MATCHES "-fsanitize=")
        message(FATAL_ERROR "${flags} names a sanitizer ('${${flags}}'); choose it with "
                            "TESSIVA_SANITIZE instead (a build directory from before that option "
                            "needs a fresh configure: cmake --preset <name> --fresh)")
    endif()
endforeach()

if(TESSIVA_SANITIZE STREQUAL "")
    return()
elseif(TESSIVA_SANITIZE STREQUAL "address")
    set(sanitizers address,undefined)
    set(instrumentation ${sanitizers})
elseif(TESSIVA_SANITIZE STREQUAL "thread")
    set(sanitizers thread)
    set(instrumentation ${sanitizers})
elseif(TESSIVA_SANITIZE STREQUAL "fuzzer")
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "TESSIVA_SANITIZE=fuzzer needs clang, not ${CMAKE_CXX_COMPILER_ID}")
    endif()
    set(sanitizers address,undefined)
    # Coverage for libFuzzer everywhere, its main only in the harnesses.
    set(instrumentation fuzzer-no-link,${sanitizers})
else()
    message(FATAL_ERROR "TESSIVA_SANITIZE is '${TESSIVA_SANITIZE}'; "
                        "use empty, address, thread or fuzzer")
endif()

add_compile_options(-fsanitize=${instrumentation} -fno-omit-frame-pointer)
# A fault stops the test that found it rather than scrolling past.
if(NOT TESSIVA_SANITIZE STREQUAL "thread")
    add_compile_options(-fno-sanitize-recover=all)
endif()
add_link_options(-fsanitize=${sanitizers})
