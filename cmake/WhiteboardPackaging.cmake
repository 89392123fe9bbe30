# Debian packages, one per component (scripts/package.sh runs this):
#   libwhiteboard1     the shared libraries and both QML modules
#   libwhiteboard-dev  headers, the CMake package, the libraries' link names
#   whiteboard-relay   whiteboard-relay, whiteboard-admin and the systemd unit
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME whiteboard)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Whiteboard developers <whiteboard@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Collaborative whiteboard QML module and its relay")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev relay)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)

# Dependencies on other packages come from the ELF files (dpkg-shlibdeps);
# our own libraries are found in the build tree and named explicitly.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/whiteboard ${PROJECT_BINARY_DIR}/relay)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(runtime_package libwhiteboard${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Collaborative whiteboard: the QML modules com.im.whiteboard and com.im.whiteboard.relay")
# What QML imports at run time is no ELF dependency.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "qml6-module-qtquick")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libwhiteboard-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "Collaborative whiteboard: headers and the CMake package Whiteboard")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "${runtime_package} (= ${PROJECT_VERSION}), qt6-base-dev, qt6-declarative-dev, qt6-websockets-dev, libprotobuf-dev, protobuf-compiler")

set(CPACK_DEBIAN_RELAY_PACKAGE_NAME whiteboard-relay)
set(CPACK_DEBIAN_RELAY_PACKAGE_SECTION net)
set(CPACK_DEBIAN_RELAY_DESCRIPTION "Collaborative whiteboard: the relay server, its administration and its systemd unit")
set(CPACK_DEBIAN_RELAY_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION}), libqt6sql6-sqlite")

include(CPack)
