# Debian packages made by CPack from the install rules (scripts/package).
#
# Every install rule names the COMPONENT of the package its files belong in;
# configuring fails on a rule with any other (or none):
#   Runtime      the shared libraries' versioned files       -> libtessiva1
#   Development  headers, the CMake package, pkg-config files,
#                the unversioned .so links                    -> tessiva-dev
#   Tools        programs and the files they need to run (the tessiva tool,
#                a daemon with its systemd unit, D-Bus and PAM files)
#                                                             -> tessiva-tools
# A new shared library installs with
#   LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development.
#
# The two libraries are one package: they share a version and a SONAME
# major, libTessiva needs libTessivaPlatform of exactly its own build, and
# neither is useful alone to a VR caller. A new major version renames it.
set(TESSIVA_PACKAGE_COMPONENTS Runtime Development Tools)
# Checked once every CMakeLists.txt has been read.
function(tessiva_check_install_components)
    get_cmake_property(installed_components COMPONENTS)
    list(JOIN TESSIVA_PACKAGE_COMPONENTS ", " known)
    foreach(component IN LISTS installed_components)
        if(NOT component IN_LIST TESSIVA_PACKAGE_COMPONENTS)
            message(FATAL_ERROR "An install rule names component '${component}'; "
                                "use one of ${known} (cmake/Packaging.cmake)")
        endif()
    endforeach()
endfunction()
cmake_language(DEFER DIRECTORY ${PROJECT_SOURCE_DIR} CALL tessiva_check_install_components)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tessiva)
set(CPACK_PACKAGE_VENDOR Tessiva)
set(CPACK_PACKAGE_CONTACT "Tessiva maintainers <maintainers@tessiva.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL ${TESSIVA_PACKAGE_COMPONENTS})
set(CPACK_DEB_COMPONENT_INSTALL ON)
# Debug information stays out of the packages, as Debian's own do.
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
# Dependencies on the machine's libraries come from dpkg-shlibdeps; those
# between the packages from the component dependencies below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps must find the tools' own libraries, not yet installed: in
# the build tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://tessiva.invalid/")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtessiva${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "VR authentication interface on top of Kavelin (shared libraries)
libTessiva keeps callers written against the VR authentication interface
working on top of the Kavelin framework; libTessivaPlatform is the platform
layer it stands on, with a simulated authentication service.")
# A shlibs file, so that programs built against the libraries depend on
# this package, at least this version (only this package holds shared
# objects, so only it gets one).
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# The linker cache is brought up to date by the ldconfig trigger of the C
# library's package, which this package's triggers file activates, as
# Debian's own library packages do. CPack would otherwise write postinst and
# postrm scripts that call ldconfig; naming those scripts here, without such
# files, keeps them out, so no package has maintainer scripts.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/cmake/debian/triggers
    ${PROJECT_BINARY_DIR}/no-maintainer-scripts/postinst
    ${PROJECT_BINARY_DIR}/no-maintainer-scripts/postrm)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME tessiva-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS Runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "VR authentication interface on top of Kavelin (development files)
Headers, the CMake package (find_package(Tessiva)) and pkg-config files for
building VR callers against Tessiva. Callers compile as C++20.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME tessiva-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS Runtime)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "VR authentication interface on top of Kavelin (tools)
The tessiva command: runs the VR interface against the simulated
authentication service, authenticates the device owner through PAM (with the
tessiva PAM service in /etc/pam.d), translates hints and errors, lists the
vocabulary; and tessivad, the authentication daemon on D-Bus, with its
systemd unit, D-Bus activation file and system-bus policy.")
# The PAM service file includes the system's common-auth and common-account.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS libpam-runtime)

# A file that the system reads from /etc (a PAM service file, say) installs
# with an absolute DESTINATION under ${CMAKE_INSTALL_FULL_SYSCONFDIR} (/etc
# when the prefix is /usr; the relative CMAKE_INSTALL_SYSCONFDIR would give
# /usr/etc) and is declared a conffile of its package, so that dpkg keeps an
# administrator's changes to it:
#   set_property(GLOBAL APPEND PROPERTY TESSIVA_CONFFILES_Tools /etc/pam.d/tessiva)
foreach(component IN LISTS TESSIVA_PACKAGE_COMPONENTS)
    get_property(conffiles GLOBAL PROPERTY TESSIVA_CONFFILES_${component})
    if(conffiles)
        string(TOUPPER ${component} upper)
        list(JOIN conffiles "\n" text)
        file(WRITE ${PROJECT_BINARY_DIR}/debian/${component}/conffiles "${text}\n")
        list(APPEND CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA
             ${PROJECT_BINARY_DIR}/debian/${component}/conffiles)
    endif()
endforeach()

include(CPack)
