# SPDX-License-Identifier: MIT
# Strict warnings for the project's own targets only; callers are unaffected.
# -Wnull-dereference is left out: at -O3 g++ reports paths its own inlining
# invents (in GoogleTest and std::function), not faults in the code.
add_library(tessiva_warnings INTERFACE)
target_compile_options(tessiva_warnings INTERFACE
    -Wall -Wextra -Wpedantic
    -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
    -Woverloaded-virtual -Wimplicit-fallthrough)
# Errors only in Tessiva's own builds (TESSIVA_WARNINGS_AS_ERRORS).
if(TESSIVA_WARNINGS_AS_ERRORS)
    target_compile_options(tessiva_warnings INTERFACE -Werror)
endif()
