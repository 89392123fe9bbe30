# Sourced by the sanitizer scripts: one configuration of the instrumented
# build, shared by the test run and the fuzz target, and the runtime options.

sanitizer_root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

# Address and undefined-behaviour checks, plus libFuzzer's coverage so the
# same build serves scripts/fuzz.sh. vptr checks are left out: they need
# the type information of Qt's own classes, built by another compiler.
sanitizer_flags="-fsanitize=address,undefined,fuzzer-no-link -fno-sanitize=vptr -fno-sanitize-recover=undefined -fno-omit-frame-pointer"
# Clang's thread-safety analysis checks the scene's lock annotations
# (GUARDED_BY, REQUIRES, the lock order); only its warnings fail the build.
analysis_flags="-Wthread-safety -Werror=thread-safety"

configure_sanitized_build() {
    local dir="$1"
    if [[ ! -f "$dir/CMakeCache.txt" ]]; then
        local launcher=()
        if command -v ccache >/dev/null 2>&1; then
            launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
        fi
        CC=clang-14 CXX=clang++-14 cmake -S "$sanitizer_root" -B "$dir" "${launcher[@]}" \
            -DCMAKE_BUILD_TYPE=RelWithDebInfo -DWHITEBOARD_FUZZ=ON \
            -DCMAKE_CXX_FLAGS="$sanitizer_flags $analysis_flags" \
            -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
            -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined"
    fi
}

# Any leak fails the run but the one listed in lsan.supp, which is not
# understood yet.
# Stacks of allocations are unwound in full: the fast unwinder stops at the
# first frame of Qt, which is built without frame pointers, and a leak's
# owner is then unknown.
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:detect_stack_use_after_return=0:fast_unwind_on_malloc=0:malloc_context_size=30"
export LSAN_OPTIONS="suppressions=$sanitizer_root/scripts/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
