#!/usr/bin/env bash
# The tests' throw-away PostgreSQL server (scripts/postgres-server) starts
# wherever the clone is, even in a folder only its owner can enter: started
# by root, it runs as postgres with its data in a private folder of its own
# below /tmp, removed at stop; started by another user, it runs as that user
# with its data in the folder given. Stopped, it leaves nothing.
# Usage: postgres_server_test.sh SOURCE_DIR
set -uo pipefail
source "$(dirname "$0")/commands_of.sh"
script=$(cd "$1" && pwd)/scripts/postgres-server

# A clone in a private folder, which postgres cannot enter.
clone=$(mktemp -d)
trap 'rm -rf "$clone"' EXIT
chmod 700 "$clone"
dir=$clone/build/tests/postgres home=$clone/build/tests/postgres user=$(id -un)
[ "$user" = root ] && user=postgres

conninfo=$("$script" start "$dir") || { echo "FAIL: the server did not start in $dir" >&2; exit 1; }
[ "$(psql -X -tAc 'SELECT 1' "$conninfo" 2>&1)" = 1 ] || fail "the server does not answer on $conninfo"
if [ "$user" = postgres ]; then
  home=$(cat "$dir/datadir" 2>/dev/null)
  [[ $home == /tmp/camrelay-postgres.* ]] || fail "the data is not in a folder of its own below /tmp: '$home'"
  [ "$(stat -c '%U %a' "$home" 2>&1)" = "postgres 700" ] ||
    fail "$home is not private to postgres: $(stat -c '%U %a' "$home" 2>&1)"
else
  [ ! -e "$dir/datadir" ] || fail "the data went elsewhere: $(cat "$dir/datadir")"
fi
pid=$(head -n 1 "$home/data/postmaster.pid" 2>/dev/null)
[ -n "$pid" ] && [ "$(ps -o user= -p "$pid")" = "$user" ] ||
  fail "the server does not run as $user: $(ps -o user= -p "${pid:-0}")"

"$script" stop "$dir" || fail "stop failed"
[ ! -e "$dir" ] && [ ! -e "$home" ] || fail "stop left $dir or $home"
# Its parent may take a moment to reap it.
for _ in $(seq 50); do
  [[ "$(ps -o stat= -p "${pid:-0}")" =~ ^(Z|$) ]] && break
  sleep 0.1
done
[[ "$(ps -o stat= -p "${pid:-0}")" =~ ^(Z|$) ]] || fail "the server still runs after stop"

[ "$failures" -eq 0 ] || { echo "$failures failure(s)" >&2; exit 1; }
echo "postgres-server: started as $user, answered, stopped and left nothing, in a private folder"
