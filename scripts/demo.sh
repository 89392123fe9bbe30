#!/usr/bin/env bash
# Sets up the machine if packages are missing, builds the demo and runs it.
# Arguments go to the demo, e.g. --screenshot FILE.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${WHITEBOARD_BUILD_DIR:-$root/build}"

bash "$root/scripts/setup-debian.sh"
bash "$root/scripts/build.sh" whiteboard-demo

# A screenshot needs no display: render offscreen when there is none.
if [[ -z "${QT_QPA_PLATFORM:-}" && -z "${DISPLAY:-}" && -z "${WAYLAND_DISPLAY:-}" ]]; then
    for arg in "$@"; do
        if [[ "$arg" == --screenshot* ]]; then
            export QT_QPA_PLATFORM=offscreen
        fi
    done
fi

exec "$build_dir/demo/whiteboard-demo" "$@"
