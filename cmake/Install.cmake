# Installation: the two libraries, the public headers with the generated
# export headers, a CMake package (installed and for the build tree),
# pkg-config files and the PAM service file.
include(CMakePackageConfigHelpers)
include(cmake/PkgConfigPaths.cmake)

set(TESSIVA_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tessiva)

# The libraries find each other in their own directory, wherever installed.
set_target_properties(Tessiva PROPERTIES INSTALL_RPATH "\$ORIGIN")

install(TARGETS TessivaPlatform Tessiva
    EXPORT TessivaTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/tessiva DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h")
install(FILES
    ${TESSIVA_GENERATED_INCLUDE_DIR}/tessiva/TessivaExport.h
    ${TESSIVA_GENERATED_INCLUDE_DIR}/tessiva/TessivaPlatformExport.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessiva)

# The CMake package. A new major version is a new ABI (docs/abi-policy.md).
configure_package_config_file(cmake/TessivaConfig.cmake.in
    ${PROJECT_BINARY_DIR}/TessivaConfig.cmake
    INSTALL_DESTINATION ${TESSIVA_CMAKE_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TessivaConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(EXPORT TessivaTargets NAMESPACE Tessiva:: DESTINATION ${TESSIVA_CMAKE_PACKAGE_DIR})
install(FILES
    ${PROJECT_BINARY_DIR}/TessivaConfig.cmake
    ${PROJECT_BINARY_DIR}/TessivaConfigVersion.cmake
    DESTINATION ${TESSIVA_CMAKE_PACKAGE_DIR})
# The same package for the build tree: point Tessiva_DIR at the build.
export(EXPORT TessivaTargets NAMESPACE Tessiva:: FILE ${PROJECT_BINARY_DIR}/TessivaTargets.cmake)

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
        configure_file(\"${template}\" \"${written}\" @ONLY)")
    install(FILES ${written} DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# The PAM service the PAM backend uses by default, under the prefix's
# etc/pam.d; an administrator copies or links it into /etc/pam.d to enable it
# (PAM reads no other directory).
install(FILES data/pam.d/tessiva DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/pam.d)
