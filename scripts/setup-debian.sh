#!/usr/bin/env bash
# Installs the Debian 12 packages that building, testing and running the
# whiteboard need. Does nothing when they are all present already.
set -euo pipefail

packages=(
    cmake
    make
    g++
    qt6-base-dev
    qt6-declarative-dev
    qt6-svg-dev
    # The relay: WebSockets, and SQLite through QtSql.
    qt6-websockets-dev
    libqt6sql6-sqlite
    # Relay nodes sharing boards through PostgreSQL, and the server its tests
    # start privately.
    libqt6sql6-psql
    postgresql
    qt6-qpa-plugins
    libprotobuf-dev
    protobuf-compiler
    qml6-module-qtqml
    qml6-module-qtqml-workerscript
    qml6-module-qtquick
    qml6-module-qtquick-controls
    qml6-module-qtquick-templates
    qml6-module-qtquick-layouts
    qml6-module-qtquick-window
    qml6-module-qtquick-dialogs
    # The file dialog's own implementation, used where the desktop offers none.
    qml6-module-qt-labs-folderlistmodel
    fonts-dejavu-core
    # Export: the tests read exported PDFs back (pdfinfo, pdftotext); the
    # image plugins add WebP (and TIFF) to the pixel formats.
    poppler-utils
    qt6-image-formats-plugins
    # The sanitizer stage and the fuzz target: clang with its runtimes, and
    # the symbolizer for readable reports.
    clang-14
    libclang-rt-14-dev
    llvm-14
    # scripts/package.sh: CPack computes the packages' dependencies with dpkg-shlibdeps.
    dpkg-dev
)

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    if [[ "$status" != "installed" ]]; then
        missing+=("$package")
    fi
done

if ((${#missing[@]} == 0)); then
    echo "setup: all packages are installed"
    exit 0
fi

echo "setup: installing ${missing[*]}"
if ! command -v apt-get >/dev/null 2>&1; then
    echo "setup: apt-get not found; this script is for Debian 12" >&2
    exit 1
fi

as_root=()
if [[ "$(id -u)" -ne 0 ]]; then
    if command -v sudo >/dev/null 2>&1; then
        as_root=(sudo)
    else
        echo "setup: run as root, or install sudo, to install: ${missing[*]}" >&2
        exit 1
    fi
fi

"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y "${missing[@]}" </dev/null
