#!/usr/bin/env bash
# The Debian package as a user gets it: built by CPack from this build, its
# control data, its files unpacked into a throw-away root, the installed
# programs run (a login against the installed simulated unit), the example
# host built against the installed library with find_package and with
# pkg-config, and an install and removal by dpkg whose root and database are
# throw-away folders too: nothing of this machine's is touched.
# Usage: package_test.sh BUILD_DIR SOURCE_DIR VERSION
set -uo pipefail
build=$(cd "$1" && pwd) source=$(cd "$2" && pwd) version=$3
source "$(dirname "$0")/commands_of.sh"

work=$(mktemp -d)
unit_pid=
cleanup() {
  [ -z "$unit_pid" ] || kill "$unit_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
# Stops at the first failure whose consequences would only add noise.
die() {
  fail "$@"
  exit 1
}

# Built from this build's install rules, as scripts/package does.
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log" >&2; die "cpack failed"; }
debs=("$work"/out/*.deb)
[ ${#debs[@]} -eq 1 ] && [ -f "${debs[0]}" ] || die "cpack made ${#debs[@]} packages"
deb=${debs[0]}
[ "$(basename "$deb")" = "camrelay_${version}_$(dpkg --print-architecture).deb" ] ||
  fail "the package is called $(basename "$deb")"

# Control data.
field() { dpkg-deb --field "$deb" "$1"; }
[ "$(field Package)" = camrelay ] || fail "Package: $(field Package)"
[ "$(field Version)" = "$version" ] || fail "Version: $(field Version), not $version"
for library in libc6 libstdc++6 libsqlite3-0 libjpeg62-turbo; do
  field Depends | grep -qE "(^|, )${library//+/\\+}( |,|$)" || fail "Depends lacks $library: $(field Depends)"
done
[ "$(field Description | wc -l)" -gt 3 ] || fail "no long description: $(field Description)"
# A real address, not a placeholder in a reserved domain.
maintainer=$(field Maintainer)
grep -qE '^[^<>]+ <[^@ ]+@[a-z0-9.-]+\.[a-z]+>$' <<<"$maintainer" &&
  ! grep -qE '[@.](invalid|example|test|localhost)(\.[a-z]+)?>$' <<<"$maintainer" ||
  fail "Maintainer is not a project address: $maintainer"

# The licence: Apache-2.0, the standard text at the root of the source, and
# the package's copyright in Debian's machine-readable format, pointing at
# the text Debian ships.
cmp -s "$source/LICENSE" /usr/share/common-licenses/Apache-2.0 ||
  fail "LICENSE is not the Apache License 2.0 as Debian ships it"

# Files, all below /usr, where the tools that use them look; the library in
# the multiarch folder.
root=$work/root
dpkg-deb -x "$deb" "$root" || die "dpkg-deb -x failed"
libdir=lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
for file in bin/camrelay bin/camrelay-unit include/camrelay/clsClient.h "$libdir/libcamrelay.a" \
  "$libdir/pkgconfig/camrelay.pc" "$libdir/cmake/camrelay/camrelayConfig.cmake" \
  "$libdir/cmake/camrelay/camrelayConfigVersion.cmake" \
  share/man/man1/camrelay.1.gz share/man/man1/camrelay-unit.1.gz \
  share/bash-completion/completions/camrelay share/bash-completion/completions/camrelay-unit \
  share/zsh/vendor-completions/_camrelay share/zsh/vendor-completions/_camrelay_unit \
  share/camrelay/schema/VideoSentrova.sql share/doc/camrelay/copyright; do
  [ -s "$root/usr/$file" ] || fail "the package lacks /usr/$file"
done
[ -z "$(find "$root" -mindepth 1 -maxdepth 1 ! -name usr)" ] || fail "files outside /usr: $(ls "$root")"
[ -z "$(find "$root/usr" -path '*/local/*')" ] || fail "files below /usr/local"
[ -z "$(find "$root/usr/lib" -maxdepth 1 -type f)" ] || fail "files outside the multiarch folder: $(ls "$root/usr/lib")"

copyright=$root/usr/share/doc/camrelay/copyright
[ "$(head -n 1 "$copyright")" = "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/" ] ||
  fail "the copyright is not in Debian's machine-readable format: $(head -n 1 "$copyright")"
[ "$(sed -n 's/^License: //p' "$copyright" | sort -u)" = Apache-2.0 ] ||
  fail "the copyright names other licences than Apache-2.0: $(grep '^License:' "$copyright")"
grep -q '"/usr/share/common-licenses/Apache-2.0"' "$copyright" || fail "the copyright does not point at the licence's text"
changelog_version=$(zcat "$root/usr/share/doc/camrelay/changelog.gz" | dpkg-parsechangelog -l - -S Version 2>&1)
[ "$changelog_version" = "$version" ] || fail "the changelog's last entry is $changelog_version, not $version"
grep -qx 'License: Apache-2.0' "$root/usr/$libdir/pkgconfig/camrelay.pc" || fail "camrelay.pc names no licence"
grep -qx '# SPDX-License-Identifier: Apache-2.0' "$root/usr/$libdir/cmake/camrelay/camrelayConfig.cmake" ||
  fail "the CMake package names no licence"

# lintian, with the overrides the package carries (each with its reason):
# no error, no warning.
lintian --fail-on error,warning --tag-display-limit 0 "$deb" >"$work/lintian.log" 2>&1 ||
  fail "lintian: $(cat "$work/lintian.log")"

# The installed programs run: every library they need is on this machine.
bin=$root/usr/bin
for program in camrelay camrelay-unit; do
  [ "$("$bin/$program" --version 2>&1)" = "$program $version" ] ||
    fail "$program --version says '$("$bin/$program" --version 2>&1)'"
done

# A login with the installed programs, over TCP, against the installed unit
# on a loopback port of its choosing (UDP on the same number, for the example
# hosts below).
# The output file is there before the unit starts, so that the wait below
# never reads a file the background job has not opened yet.
: >"$work/unit.out"
"$bin/camrelay-unit" --dir "$work/unit" --empty --udp --tcp --port 0 --exit-after 120 \
  >"$work/unit.out" 2>"$work/unit.log" &
unit_pid=$!
for _ in $(seq 100); do
  [ "$(wc -l <"$work/unit.out")" -ge 2 ] && break
  sleep 0.1
done
udp_port=$(sed -n 's/^camrelay-unit listening on udp 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/unit.out")
tcp_port=$(sed -n 's/^camrelay-unit listening on tcp 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/unit.out")
[ -n "$udp_port" ] && [ -n "$tcp_port" ] || die "the installed camrelay-unit did not start: $(cat "$work/unit.log")"
mkdir -p "$work/host" "$work/config"
XDG_CONFIG_HOME=$work/config timeout 60 "$bin/camrelay" --tcp --host 127.0.0.1 --port "$tcp_port" \
  --code 123456 --dir "$work/host" --timeout-long 5000 --timeout-short 5000 login >"$work/login.log" 2>&1 ||
  fail "the installed camrelay could not log in: $(cat "$work/login.log")"

# The example host, built against the installed library alone. ccache, when
# there, makes the second run of this test cheap.
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
mkdir -p "$work/with-cmake"
cat >"$work/with-cmake/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.20)
project(example_host CXX)
set(CMAKE_CXX_STANDARD 20)
find_package(camrelay $version REQUIRED)
add_executable(example_host $source/examples/example_host.cpp)
target_link_libraries(example_host PRIVATE camrelay::camrelay)
CMAKE
cmake -S "$work/with-cmake" -B "$work/with-cmake/build" -G Ninja "${launcher[@]}" \
  -DCMAKE_PREFIX_PATH="$root/usr" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/cmake.log" 2>&1 &&
  cmake --build "$work/with-cmake/build" >>"$work/cmake.log" 2>&1 ||
  fail "the example host does not build with find_package(camrelay): $(tail -n 20 "$work/cmake.log")"
found=$(sed -n 's/^camrelay_DIR:PATH=//p' "$work/with-cmake/build/CMakeCache.txt" 2>/dev/null)
[ "$found" = "$root/usr/$libdir/cmake/camrelay" ] || fail "find_package(camrelay) found '$found', not the installed one"

compiler=(c++)
command -v ccache >/dev/null && compiler=(ccache c++)
export PKG_CONFIG_PATH=$root/usr/$libdir/pkgconfig
flags=$(pkg-config --cflags --libs camrelay) || fail "pkg-config does not know camrelay"
[[ $flags == *"$root/usr/"*include* ]] || fail "pkg-config's flags do not point into the installed tree: $flags"
# shellcheck disable=SC2086 # the flags are words
"${compiler[@]}" -std=c++20 "$source/examples/example_host.cpp" $flags -o "$work/example_host_pc" \
  >"$work/pkg-config.log" 2>&1 ||
  fail "the example host does not build with pkg-config: $(tail -n 20 "$work/pkg-config.log")"

# Both copies log in to the unit at the same time, each from a UDP port the
# system picks (0), so that neither depends on a port being free.
hosts=()
for host in "$work/with-cmake/build/example_host" "$work/example_host_pc"; do
  [ -x "$host" ] || continue
  timeout 30 "$host" 127.0.0.1 "$udp_port" 0 123456 >"$host.log" 2>&1 &
  hosts+=("$!:$host")
done
for entry in "${hosts[@]}"; do
  wait "${entry%%:*}" ||
    fail "$(basename "${entry#*:}") built against the package could not log in: $(tail -n 5 "${entry#*:}.log")"
done

# dpkg's own install and removal, into a throw-away root with a throw-away
# copy of this machine's package database (so that Depends are checked
# against what is installed here): nothing may remain.
admin=$work/dpkg
mkdir -p "$admin/updates" "$admin/info" "$admin/triggers" "$work/instroot"
cp /var/lib/dpkg/status "$admin/status" && touch "$admin/available"
dpkg=(dpkg --admindir="$admin" --instdir="$work/instroot" --force-not-root)
"${dpkg[@]}" -i "$deb" >"$work/dpkg.log" 2>&1 || fail "dpkg -i failed: $(grep -v 'files list file' "$work/dpkg.log")"
[ -x "$work/instroot/usr/bin/camrelay" ] || fail "dpkg -i installed no camrelay"
"${dpkg[@]}" -r camrelay >>"$work/dpkg.log" 2>&1 || fail "dpkg -r failed: $(grep -v 'files list file' "$work/dpkg.log")"
[ -z "$(find "$work/instroot" -mindepth 1)" ] || fail "dpkg -r left $(find "$work/instroot" -mindepth 1 | head -n 5)"
! dpkg-query --admindir="$admin" -W camrelay >/dev/null 2>&1 || fail "dpkg still knows camrelay after its removal"

[ "$failures" -eq 0 ] || { echo "$failures failure(s)" >&2; exit 1; }
echo "package: $(basename "$deb") built, unpacked, run, built against, installed and removed"
