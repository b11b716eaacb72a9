# What every target of this project has in common, set on the target and nowhere else.

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

# velmar_shared_library(<target> <namespace> <exported name>): a shared library of the project, with
# its export header, its alias, its version and its install rules.
function(velmar_shared_library target namespace exportName)
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
    install(TARGETS ${target} EXPORT ${namespace}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILE_SET generatedHeaders DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()
