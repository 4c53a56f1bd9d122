#!/usr/bin/env bash
# The tests' throw-away PostgreSQL server (scripts/postgres-server) starts
# wherever the clone is, even in a folder only its owner can enter: started
# by root, it runs as postgres with its data in a private folder of its own
# below /tmp, removed at stop; started by another user, it runs as that user
# with its data in the folder given. Run as root, both are tried (the second
# as nobody); run as another user, the second only.
# Usage: postgres_server_test.sh SOURCE_DIR
set -uo pipefail
source "$(dirname "$0")/commands_of.sh"

# Starts a server in DIR, checks it answers and runs as USER with its data
# where it belongs, stops it and checks nothing is left.
start_check_stop() {  # SCRIPT DIR USER
  local script=$1 dir=$2 user=$3 conninfo home pid
  conninfo=$("$script" start "$dir") || { fail "$user: the server did not start in $dir"; return; }
  [ "$(psql -X -tAc 'SELECT 1' "$conninfo" 2>&1)" = 1 ] || fail "$user: the server does not answer on $conninfo"
  if [ "$user" = postgres ]; then
    home=$(cat "$dir/datadir" 2>/dev/null)
    [[ $home == /tmp/camrelay-postgres.* ]] || fail "postgres: the data is not in a folder of its own below /tmp: '$home'"
    [ "$(stat -c '%U %a' "$home" 2>&1)" = "postgres 700" ] ||
      fail "postgres: $home is not private to postgres: $(stat -c '%U %a' "$home" 2>&1)"
  else
    home=$dir
    [ ! -e "$dir/datadir" ] || fail "$user: the data went elsewhere: $(cat "$dir/datadir")"
  fi
  pid=$(head -n 1 "$home/data/postmaster.pid" 2>/dev/null)
  [ -n "$pid" ] && [ "$(ps -o user= -p "$pid")" = "$user" ] ||
    fail "$user: the server does not run as $user: $(ps -o user= -p "${pid:-0}")"
  "$script" stop "$dir" || fail "$user: stop failed"
  [ ! -e "$dir" ] || fail "$user: stop left $dir"
  [ ! -e "$home" ] || fail "$user: stop left $home"
  # Its parent may take a moment to reap it.
  for _ in $(seq 50); do
    [[ "$(ps -o stat= -p "$pid")" =~ ^(Z|$) ]] && return
    sleep 0.1
  done
  fail "$user: the server still runs after stop"
}

if [ "${1:-}" = --as-user ]; then  # --as-user SCRIPT DIR USER: the second half, run as that user
  start_check_stop "$2" "$3" "$4"
  exit $((failures > 0))
fi

source_dir=$(cd "$1" && pwd)
work=()
trap 'rm -rf "${work[@]}"' EXIT

if [ "$(id -u)" -eq 0 ]; then
  # A clone in root's private folder, which postgres cannot enter.
  clone=$(mktemp -d)
  work+=("$clone")
  chmod 700 "$clone"
  start_check_stop "$source_dir/scripts/postgres-server" "$clone/build/tests/postgres" postgres
  # Another user's private folder, holding the script and this test.
  if id nobody >/dev/null 2>&1; then
    clone=$(runuser -u nobody -- mktemp -d)
    work+=("$clone")
    install -o nobody -m 755 "$source_dir/scripts/postgres-server" "$0" "$(dirname "$0")/commands_of.sh" "$clone/"
    (cd / && runuser -u nobody -- bash "$clone/$(basename "$0")" --as-user "$clone/postgres-server" \
      "$clone/build/tests/postgres" nobody) || fail "the server as nobody (above)"
  else
    echo "no user nobody: the server as another user than root is not tried"
  fi
else
  clone=$(mktemp -d)
  work+=("$clone")
  chmod 700 "$clone"
  start_check_stop "$source_dir/scripts/postgres-server" "$clone/build/tests/postgres" "$(id -un)"
fi

[ "$failures" -eq 0 ] || { echo "$failures failure(s)" >&2; exit 1; }
echo "postgres-server: started, answered, stopped and left nothing, in a private folder"
