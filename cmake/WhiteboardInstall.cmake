# Install layout: the libraries under GNUInstallDirs' LIBDIR, the QML modules
# under Qt's own QML directory (Debian: lib/<multiarch>/qt6/qml), both
# relative to the prefix, so that `cmake --install --prefix P` stays in P.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(WHITEBOARD_INSTALL_QMLDIR "${QT6_INSTALL_QML}" CACHE STRING "QML import directory, relative to the prefix")
set(WHITEBOARD_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/Whiteboard")

# Installs a QML module's folder: its qmldir, type information and plugin.
# The plugin finds the backing libraries relative to itself, so a module
# installed under any prefix loads without LD_LIBRARY_PATH.
function(whiteboard_install_qml_module target)
    qt_query_qml_module(${target} TARGET_PATH path PLUGIN_TARGET plugin QMLDIR qmldir TYPEINFO typeinfo)
    set(destination "${WHITEBOARD_INSTALL_QMLDIR}/${path}")
    file(RELATIVE_PATH to_libs "/${destination}" "/${CMAKE_INSTALL_LIBDIR}")
    set_target_properties(${plugin} PROPERTIES INSTALL_RPATH "$ORIGIN/${to_libs}")
    install(TARGETS ${plugin} LIBRARY DESTINATION ${destination} COMPONENT runtime)
    install(FILES ${qmldir} ${typeinfo} DESTINATION ${destination} COMPONENT runtime)
endfunction()

# The CMake package: find_package(Whiteboard CONFIG) gives Whiteboard::whiteboard,
# Whiteboard::proto and Whiteboard::relayclient.
function(whiteboard_install_package)
    install(EXPORT WhiteboardTargets NAMESPACE Whiteboard:: DESTINATION ${WHITEBOARD_INSTALL_CMAKEDIR} COMPONENT dev)
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/WhiteboardConfig.cmake.in
        ${PROJECT_BINARY_DIR}/WhiteboardConfig.cmake
        INSTALL_DESTINATION ${WHITEBOARD_INSTALL_CMAKEDIR}
        PATH_VARS WHITEBOARD_INSTALL_QMLDIR)
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/WhiteboardConfigVersion.cmake COMPATIBILITY SameMajorVersion)
    install(FILES ${PROJECT_BINARY_DIR}/WhiteboardConfig.cmake ${PROJECT_BINARY_DIR}/WhiteboardConfigVersion.cmake
        DESTINATION ${WHITEBOARD_INSTALL_CMAKEDIR} COMPONENT dev)
endfunction()
