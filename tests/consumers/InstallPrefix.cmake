# SPDX-License-Identifier: MIT
# Installs a build into a fresh prefix: cmake -DBUILD_DIR=... -DPREFIX=... -P
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}
    COMMAND_ERROR_IS_FATAL ANY)
