#!/usr/bin/env bash
# Sets up the machine if packages are missing, builds whiteboard-relay and
# starts it. Arguments go to the relay; without any it listens on port 8765
# and keeps the boards in ./boards.sqlite. See whiteboard-relay --help.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${WHITEBOARD_BUILD_DIR:-$root/build}"

bash "$root/scripts/setup-debian.sh"
bash "$root/scripts/build.sh" whiteboard-relay

exec "$build_dir/relay/whiteboard-relay" "$@"
