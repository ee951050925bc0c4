# Strict warnings for the project's own targets only; callers are unaffected.
add_library(tessiva_warnings INTERFACE)
target_compile_options(tessiva_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Werror
    -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
    -Woverloaded-virtual -Wnull-dereference -Wimplicit-fallthrough)
