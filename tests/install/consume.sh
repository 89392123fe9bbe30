#!/usr/bin/env bash
# Installs the build tree into a fresh prefix, builds the host project
# against it with find_package(Whiteboard) and runs it offscreen with only the
# installed QML folder on the import path.
#   consume.sh BUILD_DIR WORK_DIR CXX_COMPILER "CXX_FLAGS" "EXE_LINKER_FLAGS"
set -euo pipefail

build_dir="$1"
work="$2"
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
rm -rf "$work"
mkdir -p "$work"
prefix="$work/prefix"

cmake --install "$build_dir" --prefix "$prefix" >"$work/install.log"
for library in libwhiteboard libwhiteboardproto libwhiteboardrelayclient; do
    file="$(find "$prefix" -name "$library.so.1" | head -n 1)"
    # Not grep -q: under pipefail, a grep that stops reading early fails the
    # pipe with objdump's SIGPIPE.
    [[ -n "$file" ]] && objdump -p "$file" | grep "SONAME *$library.so.1" >/dev/null || { echo "$library.so.1: no versioned SONAME" >&2; exit 1; }
done
for file in bin/whiteboard-relay bin/whiteboard-admin lib/systemd/system/whiteboard-relay.service include/whiteboard/proto/whiteboard.pb.h; do
    [[ -e "$prefix/$file" ]] || { echo "not installed: $file" >&2; exit 1; }
done

launcher=()
if command -v ccache >/dev/null 2>&1; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake -S "$here/host" -B "$work/host" "${launcher[@]}" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$3" -DCMAKE_CXX_FLAGS="$4" -DCMAKE_EXE_LINKER_FLAGS="$5" >"$work/configure.log"
cmake --build "$work/host" >"$work/build.log"

qml_dir="$(find "$prefix" -path '*/qt6/qml' -type d | head -n 1)"
[[ -f "$qml_dir/com/im/whiteboard/qmldir" ]] || { echo "no installed module under $prefix" >&2; exit 1; }
# Nothing of the build tree may be found: only the prefix.
env -u QML2_IMPORT_PATH QML_IMPORT_PATH="$qml_dir" QT_QPA_PLATFORM=offscreen QT_QUICK_BACKEND=software \
    "$work/host/whiteboard_host"
