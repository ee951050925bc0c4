# SPDX-License-Identifier: MIT
# What every Tessiva shared library shares: the version and soname, symbols
# hidden unless the export macro marks them, a version script that keeps
# everything else local, and a generated export header.
include(GenerateExportHeader)

# Generated public headers (the export headers) go here, beside include/.
set(TESSIVA_GENERATED_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)

# tessiva_library_objects(<target>)
# Compiles <target>'s sources for a shared library: position-independent,
# with hidden visibility, inline functions included.
function(tessiva_library_objects target)
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    # g++ describes a class in full only where its vtable goes, and the ABI
    # tools then miss the members defined in other files; describe it in
    # every object instead.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} PRIVATE -femit-class-debug-always)
    endif()
endfunction()

# tessiva_shared_library(<target> MACRO <name> HEADER <include path> VERSION_SCRIPT <file>)
# Finishes a shared library: <name> (e.g. TESSIVA_API) is the export macro
# defined in the generated header <include path> (relative to the generated
# include directory), and <file> lists the dynamic symbols the linker keeps.
function(tessiva_shared_library target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "MACRO;HEADER;VERSION_SCRIPT" "")
    tessiva_library_objects(${target})
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        LINK_DEPENDS ${arg_VERSION_SCRIPT})
    target_link_options(${target} PRIVATE "LINKER:--version-script=${arg_VERSION_SCRIPT}")
    # Every symbol must resolve inside the library, except under clang's
    # sanitizers, whose runtime only the executable carries.
    if(NOT (CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND TESSIVA_SANITIZE))
        target_link_options(${target} PRIVATE "LINKER:--no-undefined")
    endif()
    string(REGEX REPLACE "_API$" "" base_name ${arg_MACRO})
    generate_export_header(${target}
        BASE_NAME ${base_name}
        EXPORT_MACRO_NAME ${arg_MACRO}
        EXPORT_FILE_NAME ${TESSIVA_GENERATED_INCLUDE_DIR}/${arg_HEADER})
    # The public headers need C++20: a usage requirement, so that whoever
    # links the target (imported or not) compiles as C++20 without asking.
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        $<BUILD_INTERFACE:${TESSIVA_GENERATED_INCLUDE_DIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
endfunction()
