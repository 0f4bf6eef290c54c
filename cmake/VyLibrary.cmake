# vy_add_library(NAME EXPORT_NAME E SOURCES s... [PUBLIC lib...] [PRIVATE lib...] [DEPENDS pkg...])
#
# Makes the shared library NAME (alias and exported name Vy::E) out of the object library
# <name>_objects, which tests link to reach what the shared library keeps to itself. Installs the
# library, its headers below include/NAME (those that end in _p.h stay inside), the CMake package NAME and NAME.pc.
#   PUBLIC   what users of the headers need
#   PRIVATE  what only the sources need
#   DEPENDS  our libraries among PUBLIC: packages that find_package(NAME) must find first
function(vy_add_library name)
    cmake_parse_arguments(ARG "" "EXPORT_NAME" "SOURCES;PUBLIC;PRIVATE;DEPENDS" ${ARGN})
    string(TOLOWER ${name} lower)
    string(TOUPPER ${name} upper)

    add_library(${lower}_objects OBJECT ${ARG_SOURCES})
    set_target_properties(${lower}_objects PROPERTIES AUTOMOC ON POSITION_INDEPENDENT_CODE ON
        CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    target_compile_definitions(${lower}_objects PRIVATE ${upper}_LIBRARY)
    target_include_directories(${lower}_objects PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${lower}_objects PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE} vy_settings)

    add_library(${name} SHARED)
    add_library(Vy::${ARG_EXPORT_NAME} ALIAS ${name})
    set_target_properties(${name} PROPERTIES
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME ${ARG_EXPORT_NAME}
        INSTALL_RPATH "$ORIGIN") # our libraries lie side by side
    target_include_directories(${name} INTERFACE
        $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/${name}>)
    target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE ${lower}_objects)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
    if(VY_SANITIZE)
        # The sanitizer's runtime is the executable's; a library on its own has undefined symbols.
        set_property(TARGET ${name} PROPERTY LINK_OPTIONS -fsanitize=${VY_SANITIZE})
    endif()
    vy_install_library(${name})
endfunction()

# The second half of vy_add_library(), whose arguments it reads.
macro(vy_install_library name)
    install(TARGETS ${name} EXPORT ${name}Targets)
    foreach(source IN LISTS ARG_SOURCES)
        if(source MATCHES "\\.h$" AND NOT source MATCHES "_p\\.h$")
            set_property(TARGET ${name} APPEND PROPERTY VY_HEADERS ${source})
            get_filename_component(folder ${source} DIRECTORY)
            install(FILES ${source} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${name}/${folder})
        endif()
    endforeach()

    set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
    install(EXPORT ${name}Targets NAMESPACE Vy:: DESTINATION ${package_folder})
    set(package_dependencies "find_dependency(Qt5 5.15 COMPONENTS Core)")
    set(pc_requires "Qt5Core >= 5.15")
    foreach(dependency IN LISTS ARG_DEPENDS)
        string(APPEND package_dependencies "\nfind_dependency(${dependency} ${PROJECT_VERSION})")
        string(APPEND pc_requires ", ${dependency} = ${PROJECT_VERSION}")
    endforeach()
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/Config.cmake.in
        ${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake INSTALL_DESTINATION ${package_folder})
    write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake
        COMPATIBILITY SameMajorVersion)
    file(RELATIVE_PATH prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}Config.cmake
        ${CMAKE_CURRENT_BINARY_DIR}/${name}ConfigVersion.cmake DESTINATION ${package_folder})
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endmacro()
