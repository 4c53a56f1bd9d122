#!/usr/bin/env bash
# run-vbscript.sh SCRIPT
# Registers camrelay.dll and runs SCRIPT with Wine's script host against the
# unit of with-unit.sh; the script prints "VBSCRIPT OK" when all its checks
# held. Then checks that the login the script queued reached the unit.
set -euo pipefail
wine regsvr32 /s "$(winepath -w "$CAMRELAY_DLL")"
# Local UDP ports beside the unit's (this one and the next), so the script never takes the
# settings' default that another program may hold.
output=$(wine cscript //nologo "$(winepath -w "$1")" "$CAMRELAY_UNIT_PORT" $((CAMRELAY_UNIT_PORT + 1)) \
  "$(winepath -w "$CAMRELAY_WORK_DIR/host")" 2>&1) || true
echo "$output"
[[ $output == *"VBSCRIPT OK"* ]] || { echo "the script's checks failed" >&2; exit 1; }
# The datagram may reach the unit a moment after the script host has ended.
for _ in $(seq 50); do grep -q "^<- AA{}" "$CAMRELAY_UNIT_LOG" && exit 0; sleep 0.1; done
echo "the unit never saw the queued login:" >&2
cat "$CAMRELAY_UNIT_LOG" >&2
exit 1
