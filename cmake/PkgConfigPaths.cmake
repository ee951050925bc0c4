# SPDX-License-Identifier: MIT
# Paths for pkg-config files that hold whether CMAKE_INSTALL_<dir> is
# relative to the prefix (the usual case) or absolute.

# tessiva_join_paths(<out> <base> <path>): <path> itself when absolute,
# otherwise <base>/<path>.
function(tessiva_join_paths out base path)
    if(IS_ABSOLUTE "${path}")
        set(${out} "${path}" PARENT_SCOPE)
    else()
        set(${out} "${base}/${path}" PARENT_SCOPE)
    endif()
endfunction()

# tessiva_pkg_config_dirs(<libdir out> <includedir out> <libdir> <includedir>)
# The libdir and includedir lines: relative ones under ${exec_prefix} and
# ${prefix}, so the file follows its prefix, absolute ones as they are.
function(tessiva_pkg_config_dirs libdir_out includedir_out libdir includedir)
    tessiva_join_paths(joined_libdir "\${exec_prefix}" "${libdir}")
    tessiva_join_paths(joined_includedir "\${prefix}" "${includedir}")
    set(${libdir_out} "${joined_libdir}" PARENT_SCOPE)
    set(${includedir_out} "${joined_includedir}" PARENT_SCOPE)
endfunction()
