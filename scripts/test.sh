#!/usr/bin/env bash
# Sets up the machine if packages are missing, builds everything and runs
# every test offscreen. Arguments go to ctest, e.g. -R tst_scene.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${WHITEBOARD_BUILD_DIR:-$root/build}"

bash "$root/scripts/setup-debian.sh"
bash "$root/scripts/build.sh"

export QT_QPA_PLATFORM=offscreen
ctest --test-dir "$build_dir" --output-on-failure "$@"
