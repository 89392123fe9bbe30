#!/usr/bin/env bash
# Sets up the machine if packages are missing, builds the demo and runs it.
# Arguments go to the demo, e.g. --screenshot FILE.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${WHITEBOARD_BUILD_DIR:-$root/build}"

bash "$root/scripts/setup-debian.sh"

# Built only when a source is newer than the demo: under the Makefile
# generator Qt 6.4 collects the QML types' metadata on every build (an
# always-run target), so the registration is compiled again and the
# libraries and the demo are linked again, 4 to 11 s, with nothing changed.
binary="$build_dir/demo/whiteboard-demo"
if [[ ! -x "$binary" || -n "$(find "$root/CMakeLists.txt" "$root/whiteboard" "$root/relay" "$root/demo" \
                               "$root/resources" -newer "$binary" -print -quit)" ]]; then
    bash "$root/scripts/build.sh" whiteboard-demo
fi

# A screenshot needs no display: render offscreen when there is none.
if [[ -z "${QT_QPA_PLATFORM:-}" && -z "${DISPLAY:-}" && -z "${WAYLAND_DISPLAY:-}" ]]; then
    for arg in "$@"; do
        if [[ "$arg" == --screenshot* ]]; then
            export QT_QPA_PLATFORM=offscreen
        fi
    done
fi

exec "$binary" "$@"
