#!/usr/bin/env bash
# Boots the Wine prefix the Windows tests share and proves a program runs in
# it. Wine that cannot start is a failure, with what Wine said.
set -uo pipefail
fail() { echo "Wine cannot start: $1" >&2; exit 1; }
command -v wine >/dev/null || fail "no wine on PATH (scripts/install-deps installs it)"
[ -n "${DISPLAY:-}" ] || fail "no X display: run the Windows tests under xvfb-run (scripts/test-windows does)"
output=$(wineboot --init 2>&1) || fail "wineboot: $output"
wineserver --wait
output=$(wine cmd /c echo wine-ready 2>&1)
[[ $output == *wine-ready* ]] || fail "cmd /c echo gave: $output"
