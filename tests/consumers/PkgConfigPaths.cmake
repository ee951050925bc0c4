# SPDX-License-Identifier: MIT
# The libdir and includedir lines of the pkg-config files, for relative and
# absolute install directories: cmake -P PkgConfigPaths.cmake
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/PkgConfigPaths.cmake)

set(failures 0)
function(expect libdir includedir expected_libdir expected_includedir)
    tessiva_pkg_config_dirs(got_libdir got_includedir "${libdir}" "${includedir}")
    if(NOT got_libdir STREQUAL expected_libdir OR NOT got_includedir STREQUAL expected_includedir)
        message(SEND_ERROR "${libdir}, ${includedir}: got ${got_libdir}, ${got_includedir}; "
                           "expected ${expected_libdir}, ${expected_includedir}")
    endif()
endfunction()

expect(lib include "\${exec_prefix}/lib" "\${prefix}/include")
expect(lib/i386-linux-gnu include "\${exec_prefix}/lib/i386-linux-gnu" "\${prefix}/include")
expect(/opt/tessiva/lib /opt/tessiva/include /opt/tessiva/lib /opt/tessiva/include)
expect(lib /usr/include/tessiva-1 "\${exec_prefix}/lib" /usr/include/tessiva-1)
