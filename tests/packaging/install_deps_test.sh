#!/usr/bin/env bash
# scripts/install-deps against a made-up machine: its own apt sources
# (APT_CONFIG), a dpkg that reports the packages named missing, and stand-ins
# for id, sudo, apt-get and npm that record how they are called. With
# everything there it asks nothing, of apt or of sudo; what is missing is
# installed through sudo as a user, directly as root, with one apt-get update.
# Usage: install_deps_test.sh SOURCE_DIR
set -uo pipefail
source "$(dirname "$0")/commands_of.sh"
source_dir=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The tools the script may use from this machine; everything else is a stand-in.
real_tools=(bash env grep awk tee dirname apt-config)

stub() {  # NAME BODY
  printf '#!/bin/bash\n%s\n' "$2" >"$work/bin/$1"
  chmod +x "$work/bin/$1"
}

# Sets up a machine: UID, packages missing, whether npm, the browser tests'
# modules and sudo are there, and where its sources name a deb-src entry.
machine() {  # UID MISSING NPM(yes|no) MODULES(yes|no) SUDO(yes|no) DEB-SRC(deb822|one-line|none)
  rm -rf "$work/bin" "$work/etc" "$work/clone" "$work/calls"
  mkdir -p "$work/bin" "$work/etc/apt.conf.d" "$work/etc/sources.list.d" "$work/clone/scripts" \
    "$work/clone/tests/browser"
  touch "$work/calls"
  for tool in "${real_tools[@]}"; do ln -s "$(command -v "$tool")" "$work/bin/$tool"; done
  cp "$source_dir/scripts/install-deps" "$work/clone/scripts/"
  stub id "[ \"\$1\" = -u ] && echo $1"
  stub dpkg-query "for p in $2; do [ \"\${@: -1}\" = \"\$p\" ] && exit 1; done; echo -n 'install ok installed'"
  stub apt-get "echo \"apt-get \$*\" >>'$work/calls'"
  [ "$3" = no ] || stub npm "echo \"npm \$*\" >>'$work/calls'"
  [ "$4" = no ] || mkdir -p "$work/clone/tests/browser/node_modules/playwright-core"
  [ "$5" = no ] || stub sudo "echo \"sudo \$*\" >>'$work/calls'; exec \"\$@\""
  printf 'Dir::Etc "%s/etc/";\n' "$work" >"$work/apt.conf"
  # A mirror of this machine's, in the deb822 form Debian writes.
  printf 'Types: deb%s\nURIs: http://mirror.invalid/debian\nSuites: bookworm\nComponents: main\n' \
    "$([ "$6" != deb822 ] || echo ' deb-src')" >"$work/etc/sources.list.d/debian.sources"
  [ "$6" != one-line ] || echo 'deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg]' \
    'http://mirror.invalid/debian bookworm main' >"$work/etc/sources.list"
}

run() {  # NAME EXPECTED-STATUS EXPECTED-CALLS
  local status=0
  APT_CONFIG=$work/apt.conf PATH=$work/bin bash "$work/clone/scripts/install-deps" >"$work/out" 2>&1 || status=$?
  [ "$status" -eq "$2" ] || fail "$1: exit status $status, not $2: $(cat "$work/out")"
  [ "$(cat "$work/calls")" = "$3" ] || fail "$1: called
$(cat "$work/calls")
and not
$3"
}

machine 1000 "" yes yes no one-line
run "a user without sudo, everything there" 0 ""

machine 1000 "" no yes yes none
run "a user, npm and the deb-src entry missing" 0 "sudo tee $work/etc/sources.list.d/camrelay-deb-src.sources
sudo apt-get update -qq
apt-get update -qq
sudo apt-get install -y -qq --no-install-recommends npm
apt-get install -y -qq --no-install-recommends npm"
entry=$work/etc/sources.list.d/camrelay-deb-src.sources
grep -qx 'Types: deb-src' "$entry" && grep -qx 'URIs: http://mirror.invalid/debian' "$entry" ||
  fail "the deb-src entry is not for the mirror in use: $(cat "$entry" 2>&1)"

machine 0 "lintian postgresql" yes no no deb822
run "root, two packages and the browser tests' modules missing" 0 "apt-get update -qq
apt-get install -y -qq --no-install-recommends postgresql lintian
npm ci --no-audit --no-fund --loglevel=error"

machine 1000 "lintian" yes yes no deb822
run "a user without sudo, a package missing" 1 ""
grep -q "run as root or install sudo: missing lintian" "$work/out" || fail "no clear error without sudo: $(cat "$work/out")"

[ "$failures" -eq 0 ] || { echo "$failures failure(s)" >&2; exit 1; }
echo "install-deps: asks nothing with everything there, installs through sudo or as root what is missing"
