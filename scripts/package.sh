#!/usr/bin/env bash
# Builds the Debian packages into ./packages (or the folder given):
#   libwhiteboard1_<version>_<arch>.deb     the libraries and both QML modules
#   libwhiteboard-dev_<version>_<arch>.deb  headers and the CMake package
#   whiteboard-relay_<version>_<arch>.deb   the relay, whiteboard-admin, the unit
# in a build directory of its own (./build-package), configured for /usr.
# Install them with: sudo apt-get install ./packages/*.deb
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
out="${1:-$root/packages}"
build_dir="${WHITEBOARD_PACKAGE_BUILD_DIR:-$root/build-package}"

bash "$root/scripts/setup-debian.sh"
# CPack's DEB generator computes the dependencies with dpkg-shlibdeps.
if ! command -v dpkg-shlibdeps >/dev/null 2>&1 || ! command -v dpkg-deb >/dev/null 2>&1; then
    if [[ $(id -u) -eq 0 ]]; then apt-get install -y dpkg-dev; else sudo apt-get install -y dpkg-dev; fi
fi

if [[ ! -f "$build_dir/CMakeCache.txt" ]]; then
    launcher=()
    if command -v ccache >/dev/null 2>&1; then
        launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    cmake -S "$root" -B "$build_dir" "${launcher[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
        -DCMAKE_SKIP_INSTALL_ALL_DEPENDENCY=ON
fi
cmake --build "$build_dir" -j "$(nproc)" --target whiteboard whiteboardplugin whiteboardrelayclient whiteboardrelayclientplugin \
    whiteboard-relay whiteboard-admin

mkdir -p "$out"
(cd "$build_dir" && cpack -G DEB -B "$out")
rm -rf "$out/_CPack_Packages"
ls -1 "$out"/*.deb
