#!/usr/bin/env bash
# with-unit.sh UNIT WORKDIR [UNIT OPTIONS...] -- COMMAND...
# Runs COMMAND beside a simulated unit of its own, listening on TCP and UDP on
# one loopback port with its content below WORKDIR/unit and every message it
# sees in WORKDIR/unit.log. COMMAND finds them in CAMRELAY_UNIT_PORT,
# CAMRELAY_UNIT_DIR, CAMRELAY_UNIT_LOG and CAMRELAY_WORK_DIR. The package
# test runs the installed unit with it too.
set -euo pipefail
unit=$1 work=$2
shift 2
options=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do options+=("$1"); shift; done
shift
rm -rf "$work"
mkdir -p "$work"
log=$work/unit.log
"$unit" --dir "$work/unit" --tcp --udp --port 0 --host 127.0.0.1 --exit-after 240 -v "${options[@]}" \
  >"$work/unit.out" 2>"$log" &
pid=$!
trap 'kill $pid 2>/dev/null; wait $pid 2>/dev/null || true' EXIT
# Writing the demo content takes a while on a loaded machine.
for _ in $(seq 600); do
  grep -q "listening on" "$work/unit.out" && break
  sleep 0.1
done
line=$(grep -m1 "listening on" "$work/unit.out") ||
  { echo "the unit did not start within a minute:" >&2; cat "$log" >&2; exit 1; }
export CAMRELAY_UNIT_PORT=${line##*:} CAMRELAY_UNIT_DIR=$work/unit CAMRELAY_UNIT_LOG=$log CAMRELAY_WORK_DIR=$work
"$@"
