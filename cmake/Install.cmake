# SPDX-License-Identifier: MIT
# Installation: the two libraries, the public headers with the generated
# export headers, a CMake package (installed, for the build tree and for a
# build that adds Tessiva's sources), pkg-config files and the PAM service
# file. Each rule names a component (Runtime, Development, Tools), so that
# `cmake --install --component` installs a part; debian/*.install split the
# Debian packages.
include(CMakePackageConfigHelpers)
include(cmake/PkgConfigPaths.cmake)

set(TESSIVA_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tessiva)

# Installed into a directory the dynamic linker searches anyway (/usr, as
# the Debian packages are), nothing needs a run path; anywhere else the
# libraries find each other in their own directory, and the tools find them
# relative to their own.
if(CMAKE_INSTALL_FULL_LIBDIR IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
    set(TESSIVA_TOOLS_INSTALL_RPATH "")
else()
    set_target_properties(Tessiva PROPERTIES INSTALL_RPATH "\$ORIGIN")
    file(RELATIVE_PATH tools_to_libdir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set(TESSIVA_TOOLS_INSTALL_RPATH "\$ORIGIN/${tools_to_libdir}")
endif()

install(TARGETS TessivaPlatform Tessiva
    EXPORT TessivaTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime
            NAMELINK_COMPONENT Development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/tessiva DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT Development FILES_MATCHING PATTERN "*.h")
install(FILES
    ${TESSIVA_GENERATED_INCLUDE_DIR}/tessiva/TessivaExport.h
    ${TESSIVA_GENERATED_INCLUDE_DIR}/tessiva/TessivaPlatformExport.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessiva COMPONENT Development)

# The CMake package. A new major version is a new ABI (docs/abi-policy.md).
configure_package_config_file(cmake/TessivaConfig.cmake.in
    ${PROJECT_BINARY_DIR}/TessivaConfig.cmake
    INSTALL_DESTINATION ${TESSIVA_CMAKE_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TessivaConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(EXPORT TessivaTargets NAMESPACE Tessiva:: DESTINATION ${TESSIVA_CMAKE_PACKAGE_DIR}
    COMPONENT Development)
install(FILES
    ${PROJECT_BINARY_DIR}/TessivaConfig.cmake
    ${PROJECT_BINARY_DIR}/TessivaConfigVersion.cmake
    DESTINATION ${TESSIVA_CMAKE_PACKAGE_DIR} COMPONENT Development)
# The same package for the build tree: point Tessiva_DIR at the build.
export(EXPORT TessivaTargets NAMESPACE Tessiva:: FILE ${PROJECT_BINARY_DIR}/TessivaTargets.cmake)
# In a build that holds Tessiva's sources (its own, or a project's
# add_subdirectory), find_package(Tessiva) finds the targets already there
# rather than an installed copy, so a caller's CMake lines work unchanged.
file(WRITE ${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/tessiva-config.cmake
    "# Tessiva::Tessiva and Tessiva::Platform are targets of this build.\n")
write_basic_package_version_file(${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/tessiva-config-version.cmake
    COMPATIBILITY SameMajorVersion)

# pkg-config files. The prefix is only known when installing (cmake
# --install --prefix may change it), so each file is written then, from a
# template in which everything else is already filled in.
tessiva_pkg_config_dirs(TESSIVA_PC_LIBDIR TESSIVA_PC_INCLUDEDIR
    "${CMAKE_INSTALL_LIBDIR}" "${CMAKE_INSTALL_INCLUDEDIR}")
set(TESSIVA_PC_PREFIX "@TESSIVA_PC_PREFIX@") # left for install time
foreach(package tessiva tessiva-platform)
    set(template ${PROJECT_BINARY_DIR}/pkgconfig/${package}.pc.in)
    set(written ${PROJECT_BINARY_DIR}/pkgconfig/install/${package}.pc)
    configure_file(cmake/${package}.pc.in ${template} @ONLY)
    install(CODE "
        set(TESSIVA_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
        configure_file(\"${template}\" \"${written}\" @ONLY)" COMPONENT Development)
    install(FILES ${written} DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
endforeach()

# The PAM service the PAM backend uses by default, under the prefix's
# etc/pam.d; an administrator copies or links it into /etc/pam.d to enable it
# (PAM reads no other directory). In a /usr install (the Debian packages) it
# goes to /etc/pam.d itself, a conffile of the tessivad package.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(pam_directory ${CMAKE_INSTALL_FULL_SYSCONFDIR}/pam.d)
else()
    set(pam_directory ${CMAKE_INSTALL_SYSCONFDIR}/pam.d)
endif()
install(FILES data/pam.d/tessiva DESTINATION ${pam_directory} COMPONENT Tools)
