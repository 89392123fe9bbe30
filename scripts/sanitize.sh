#!/usr/bin/env bash
# The sanitizer stage: builds everything with clang under AddressSanitizer
# and UndefinedBehaviorSanitizer (any finding fails), runs the whole test
# suite with LeakSanitizer on, then fuzzes receiveData for 60 seconds over
# its corpus. Arguments go to ctest. WHITEBOARD_ASAN_BUILD_DIR chooses the
# build directory (default ./build-asan).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${WHITEBOARD_ASAN_BUILD_DIR:-$root/build-asan}"

bash "$root/scripts/setup-debian.sh"
source "$root/scripts/sanitizer-env.sh"
configure_sanitized_build "$build_dir"
cmake --build "$build_dir" -j "$(nproc)"

QT_QPA_PLATFORM=offscreen ctest --test-dir "$build_dir" --output-on-failure "$@"
WHITEBOARD_ASAN_BUILD_DIR="$build_dir" bash "$root/scripts/fuzz.sh" 60
