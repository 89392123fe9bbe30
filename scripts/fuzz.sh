#!/usr/bin/env bash
# Fuzzes receiveData for the given number of seconds (default 60) over the
# corpus that the build writes and the committed reproducers of past
# findings (fuzz/regressions), and stops at the first finding, whose
# reproducer libFuzzer leaves in the current directory. WHITEBOARD_FUZZ_MODE
# (raw, envelope or structured) fixes one mode; by default the first byte of
# each input chooses. Further arguments go to libFuzzer.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${WHITEBOARD_ASAN_BUILD_DIR:-$root/build-asan}"
seconds="${1:-60}"
shift || true

if ! command -v clang++-14 >/dev/null 2>&1; then
    echo "fuzz: clang++-14 is not installed (scripts/setup-debian.sh installs it)" >&2
    exit 1
fi
source "$root/scripts/sanitizer-env.sh"
configure_sanitized_build "$build_dir"
cmake --build "$build_dir" -j "$(nproc)" --target fuzz_receive

export QT_QPA_PLATFORM=offscreen
# Leaks are the test suite's business; here they would stop the campaign at
# the toolkit's first cache.
export ASAN_OPTIONS="detect_leaks=0"
exec "$build_dir/fuzz/fuzz_receive" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=3072 -max_len=65536 \
    -print_final_stats=1 "$@" "$build_dir/fuzz/corpus" "$root/fuzz/regressions"
