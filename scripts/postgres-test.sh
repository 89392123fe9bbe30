#!/usr/bin/env bash
# A private PostgreSQL server for the relay's tests, from Debian's postgresql
# package: initdb and pg_ctl in a fresh folder under /tmp, listening only on a
# Unix socket in that folder, with a superuser "whiteboard" that needs no
# password there.
#
#   postgres-test.sh start STATE   starts it; writes its URL to STATE
#   postgres-test.sh restart STATE restarts it at once (as after a crash)
#   postgres-test.sh stop STATE    stops it and removes the folder
#
# As root the server runs as "nobody", since PostgreSQL refuses root.
set -euo pipefail

action="${1:-}"
state="${2:-}"
if [[ -z "$action" || -z "$state" ]]; then
    echo "usage: $0 start|restart|stop STATE" >&2
    exit 2
fi

bin=""
for candidate in /usr/lib/postgresql/*/bin; do
    [[ -x "$candidate/pg_ctl" ]] && bin="$candidate"
done
if [[ -z "$bin" ]]; then
    echo "postgres-test: no PostgreSQL server found; scripts/setup-debian.sh installs it" >&2
    exit 1
fi

as_server=()
if [[ "$(id -u)" -eq 0 ]]; then
    as_server=(runuser -u nobody --)
fi

stop() {
    local dir="$1"
    if [[ -d "$dir/data" ]]; then
        "${as_server[@]}" "$bin/pg_ctl" -D "$dir/data" -m immediate -w stop >/dev/null 2>&1 || true
    fi
    rm -rf "$dir"
}

case "$action" in
start)
    # A server left over from an interrupted run goes first.
    if [[ -f "$state.dir" ]]; then
        stop "$(cat "$state.dir")"
    fi
    dir="$(mktemp -d /tmp/whiteboard-pg.XXXXXX)"
    echo "$dir" >"$state.dir"
    if [[ ${#as_server[@]} -gt 0 ]]; then
        chown nobody "$dir"
    fi
    "${as_server[@]}" "$bin/initdb" -D "$dir/data" -U whiteboard --auth=trust --no-sync -E UTF8 >"$dir/initdb.log" 2>&1 || {
        cat "$dir/initdb.log" >&2
        exit 1
    }
    # Unix socket only: no port to collide with another server.
    if ! "${as_server[@]}" "$bin/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w -t 60 \
        -o "-c listen_addresses='' -c unix_socket_directories=$dir -c fsync=off -c max_connections=200" start >/dev/null; then
        cat "$dir/server.log" >&2
        exit 1
    fi
    echo "postgresql://whiteboard@/postgres?host=$dir" >"$state"
    echo "postgres-test: server on $dir"
    ;;
restart)
    dir="$(cat "$state.dir")"
    "${as_server[@]}" "$bin/pg_ctl" -D "$dir/data" -l "$dir/server.log" -m immediate -w -t 60 restart >/dev/null
    ;;
stop)
    if [[ -f "$state.dir" ]]; then
        stop "$(cat "$state.dir")"
        rm -f "$state.dir"
    fi
    rm -f "$state"
    ;;
*)
    echo "usage: $0 start|restart|stop STATE" >&2
    exit 2
    ;;
esac
