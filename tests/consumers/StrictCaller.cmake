# SPDX-License-Identifier: MIT
# Included into the legacy caller's project by the consumer builds
# (CMAKE_PROJECT_LegacyCaller_INCLUDE): a strict caller's warnings, with
# Tessiva's headers treated as the caller's own, so that they must compile
# warning-free. The example's own CMake lines stay a plain caller's.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror)
set(CMAKE_NO_SYSTEM_FROM_IMPORTED ON)
