#!/usr/bin/env bash
# ThreadSanitizer run of the rendering and sync tests, where the GUI thread
# and the render thread share the scene. The scene's mutexes announce
# themselves to TSan (whiteboard/scene/annotatedmutex.h); races inside Qt's
# own uninstrumented code are listed in scripts/tsan.supp. Arguments name
# other test targets. WHITEBOARD_TSAN_BUILD_DIR chooses the build directory
# (default ./build-tsan).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${WHITEBOARD_TSAN_BUILD_DIR:-$root/build-tsan}"
tests=("$@")
if ((${#tests[@]} == 0)); then
    tests=(tst_render tst_sync)
fi

bash "$root/scripts/setup-debian.sh"
if [[ ! -f "$build_dir/CMakeCache.txt" ]]; then
    launcher=()
    if command -v ccache >/dev/null 2>&1; then
        launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    CC=clang-14 CXX=clang++-14 cmake -S "$root" -B "$build_dir" "${launcher[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_CXX_FLAGS="-fsanitize=thread -fno-omit-frame-pointer" \
        -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread" -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=thread"
fi
targets=()
for test in "${tests[@]}"; do
    targets+=(--target "$test")
done
cmake --build "$build_dir" -j "$(nproc)" "${targets[@]}"

export TSAN_OPTIONS="suppressions=$root/scripts/tsan.supp:halt_on_error=0:exitcode=66:second_deadlock_stack=1"
regex="^($(IFS='|'; echo "${tests[*]}"))\$"
QT_QPA_PLATFORM=offscreen ctest --test-dir "$build_dir" --output-on-failure -R "$regex"
