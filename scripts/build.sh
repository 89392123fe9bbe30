#!/usr/bin/env bash
# Configures the project on first use and builds it into ./build, incrementally.
# Arguments name build targets; without any, everything is built.
# WHITEBOARD_BUILD_DIR chooses another build directory.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${WHITEBOARD_BUILD_DIR:-$root/build}"

if [[ ! -f "$build_dir/CMakeCache.txt" ]]; then
    # A compiler cache, where installed, lets work trees and rebuilds share
    # what is already compiled.
    launcher=()
    if command -v ccache >/dev/null 2>&1; then
        launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    cmake -S "$root" -B "$build_dir" "${launcher[@]}"
fi

targets=()
for target in "$@"; do
    targets+=(--target "$target")
done
cmake --build "$build_dir" -j "$(nproc)" "${targets[@]}"
