# What every target of this project has in common, set on the target and nowhere else.
include(CMakePackageConfigHelpers)
include(GenerateExportHeader)
include(GNUInstallDirs)

# velmar_target(<target>): language level, warnings, Qt's code generator, hidden symbols.
function(velmar_target target)
    target_compile_features(${target} PUBLIC cxx_std_17)
    set_target_properties(${target} PROPERTIES
        AUTOMOC ON
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
        -Woverloaded-virtual -Wcast-align -Wconversion -Wno-sign-conversion)
    if(VELMAR_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(VELMAR_SANITIZE)
        set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all)
        target_compile_options(${target} PRIVATE ${sanitizers} -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE ${sanitizers})
    endif()
    target_compile_definitions(${target} PRIVATE QT_NO_CAST_FROM_BYTEARRAY QT_NO_FOREACH
        QT_NO_KEYWORDS)
endfunction()

# velmar_precompile(<target> [REUSE_FROM <other>]): the headers that most sources of the target begin with.
function(velmar_precompile target)
    if(NOT VELMAR_PRECOMPILE_HEADERS)
        return()
    elseif(ARGN)
        target_precompile_headers(${target} ${ARGN})
    else()
        target_precompile_headers(${target} PRIVATE <QtCore> <chrono> <functional> <memory>
            <optional> <vector>)
    endif()
endfunction()

# velmar_shared_library(<target> <namespace> <exported name> [PACKAGE <package>]
#                       [INCLUDE_DESTINATION <folder>]): a shared library of the project, with its
# export header, its alias, its version and its install rules. It belongs to the CMake package
# VelmarDeviceBoundary unless told otherwise; its headers go to ${CMAKE_INSTALL_INCLUDEDIR} or to a
# folder of that.
function(velmar_shared_library target namespace exportName)
    cmake_parse_arguments(ARG "" "PACKAGE;INCLUDE_DESTINATION" "" ${ARGN})
    if(NOT ARG_PACKAGE)
        set(ARG_PACKAGE VelmarDeviceBoundary)
    endif()
    velmar_target(${target})
    add_library(${namespace}::${exportName} ALIAS ${target})
    generate_export_header(${target})
    target_sources(${target} PUBLIC FILE_SET generatedHeaders TYPE HEADERS
        BASE_DIRS ${CMAKE_CURRENT_BINARY_DIR}
        FILES ${CMAKE_CURRENT_BINARY_DIR}/${target}_export.h)
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${exportName}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        INSTALL_RPATH $ORIGIN) # finds its sibling libraries
    # At the end of the folder's CMakeLists.txt: the target's own headers are known only then.
    cmake_language(EVAL CODE "cmake_language(DEFER CALL velmar_install_library
        [[${target}]] [[${ARG_PACKAGE}]] [[${namespace}]] [[${ARG_INCLUDE_DESTINATION}]])")
endfunction()

# velmar_install_library(<target> <package> <namespace> <folder of headers>): see above.
function(velmar_install_library target package namespace folder)
    set(headers ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
    install(TARGETS ${target} EXPORT ${package}${namespace}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${package}
        FILE_SET HEADERS DESTINATION ${headers} COMPONENT ${package}
        FILE_SET generatedHeaders DESTINATION ${headers} COMPONENT ${package})
endfunction()

# velmar_package(<package> <namespace>...): what find_package(<package>) needs, from
# cmake/<package>Config.cmake.in and the exported targets of the package in each namespace.
function(velmar_package package)
    set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
    foreach(namespace ${ARGN})
        install(EXPORT ${package}${namespace} NAMESPACE ${namespace}::
            FILE ${package}${namespace}Targets.cmake
            DESTINATION ${folder} COMPONENT ${package})
    endforeach()
    configure_package_config_file(
        ${PROJECT_SOURCE_DIR}/cmake/${package}Config.cmake.in
        ${CMAKE_CURRENT_BINARY_DIR}/${package}Config.cmake
        INSTALL_DESTINATION ${folder}
        NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
    write_basic_package_version_file(
        ${CMAKE_CURRENT_BINARY_DIR}/${package}ConfigVersion.cmake
        COMPATIBILITY SameMinorVersion) # the interface may still change before 1.0
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}Config.cmake
            ${CMAKE_CURRENT_BINARY_DIR}/${package}ConfigVersion.cmake
        DESTINATION ${folder} COMPONENT ${package})
endfunction()
