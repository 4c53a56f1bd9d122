#!/usr/bin/env bash
# camrelay_exe.sh: camrelay.exe under Wine against the unit of with-unit.sh:
# its help, a login with a programming download and a clip over TCP, the
# settings it used in the registry, and its console serving the page, fetched
# here over loopback. Prints the first failed check and fails.
set -euo pipefail
work=$CAMRELAY_WORK_DIR/exe
mkdir -p "$work"
fail() {
  echo "FAILED: $*" >&2
  exit 1
}
camrelay() { timeout 120 wine "$CAMRELAY_EXE" "$@"; }
dir=$(winepath -w "$work")
link=(--host 127.0.0.1 --port "$CAMRELAY_UNIT_PORT" --tcp --dir "$dir")
export CAMRELAY_CODE=123456

help=$(camrelay --help | tr -d '\r')
[[ $help == *'HKEY_CURRENT_USER\Software\VB and VBA Program Settings\CamRelay'* && $help != *XDG_CONFIG_HOME* ]] ||
  fail "--help does not name the registry key the settings live in"

# What the download brings is compared table by table in the DLL's session,
# through the same Windows build of the library.
camrelay "${link[@]}" login download-prog || fail "login download-prog ended with $?"
[ -s "$work/VideoSentrova.db" ] || fail "login download-prog left no database"
settings=$(wine reg query 'HKCU\Software\VB and VBA Program Settings\CamRelay\AppSetting' /v RemotePort | tr -d '\r')
[[ $settings == *"$CAMRELAY_UNIT_PORT"* ]] || fail "the port used is not in the DLL's registry key: $settings"

# No PostgreSQL client in this build: a server connection string says so.
! camrelay --db "Provider=PostgreSQL;Host=127.0.0.1;Database=camrelay" --dir "$dir" db init 2>"$work/server.err" &&
  grep -q "PostgreSQL provider is not part of this build" "$work/server.err" ||
  fail "a server connection string is not refused with its reason: $(cat "$work/server.err")"

clip=$(find "$CAMRELAY_UNIT_DIR/VideoAvi" -type f | head -1)
camrelay "${link[@]}" download-media "$(basename "$clip")" || fail "download-media ended with $?"
cmp -s "$clip" "$work/VideoAvi/$(basename "$clip")" || fail "the clip differs from the unit's"

# Started without the shell function, so that the signal at the end reaches
# timeout, which passes it on to the program under Wine.
timeout 120 wine "$CAMRELAY_EXE" "${link[@]}" console >"$work/console.out" 2>"$work/console.err" &
console=$!
trap 'kill $console 2>/dev/null; wait $console 2>/dev/null || true' EXIT
for _ in $(seq 600); do
  url=$(grep -m1 -o 'http://127\.0\.0\.1:[0-9]*/?token=[0-9A-Za-z_-]*' "$work/console.out") && break
  sleep 0.1
done
[ -n "$url" ] || fail "the console printed no address: $(cat "$work/console.out" "$work/console.err")"
page=$(curl -s --max-time 20 "$url") || fail "the console's page cannot be fetched from $url"
[[ $page == *"<title>CamRelay console</title>"* ]] || fail "the console served no page: ${page:0:200}"
echo "camrelay.exe OK"
