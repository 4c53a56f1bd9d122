#!/usr/bin/env bash
# The Debian package as a user gets it: built by CPack from this build, its
# control data, installed by dpkg into a throw-away root with a throw-away
# copy of the package database (so that Depends are checked against what is
# installed here), the installed programs run, the example host built against
# the installed library with find_package logs in to the installed simulated
# unit, and the removal: nothing of this machine's is touched.
# Usage: package_test.sh BUILD_DIR SOURCE_DIR VERSION
set -uo pipefail
build=$(cd "$1" && pwd) source=$(cd "$2" && pwd) version=$3
source "$(dirname "$0")/commands_of.sh"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Stops at the first failure whose consequences would only add noise.
die() {
  fail "$@"
  exit 1
}

# Built from this build's install rules, as scripts/package does; its name
# comes from the control data's Package, Version and Architecture.
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log" >&2; die "cpack failed"; }
debs=("$work"/out/*.deb)
[ ${#debs[@]} -eq 1 ] && [ -f "${debs[0]}" ] || die "cpack made ${#debs[@]} packages"
deb=${debs[0]}
[ "$(basename "$deb")" = "camrelay_${version}_$(dpkg --print-architecture).deb" ] ||
  fail "the package is called $(basename "$deb")"
depends=$(dpkg-deb --field "$deb" Depends)
for library in libc6 libstdc++6 libsqlite3-0 libjpeg62-turbo; do
  grep -qE "(^|, )${library//+/\\+}( |,|$)" <<<"$depends" || fail "Depends lacks $library: $depends"
done
# lintian: no error, no warning.
lintian --fail-on error,warning --tag-display-limit 0 "$deb" >"$work/lintian.log" 2>&1 ||
  fail "lintian: $(cat "$work/lintian.log")"

admin=$work/dpkg root=$work/root
mkdir -p "$admin/updates" "$admin/info" "$admin/triggers" "$root"
cp /var/lib/dpkg/status "$admin/status" && touch "$admin/available"
dpkg=(dpkg --admindir="$admin" --instdir="$root" --force-not-root)
"${dpkg[@]}" -i "$deb" >"$work/dpkg.log" 2>&1 || die "dpkg -i failed: $(grep -v 'files list file' "$work/dpkg.log")"

# Files, all below /usr, where the tools that use them look; the library in
# the multiarch folder.
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
# (lintian above refuses files below /usr/local or outside the FHS folders.)
[ -z "$(find "$root/usr/lib" -maxdepth 1 -type f)" ] || fail "files outside the multiarch folder: $(ls "$root/usr/lib")"

# The licence: Apache-2.0, in Debian's machine-readable format (lintian checks
# its pointer to the text); the changelog's last entry is this version.
copyright=$root/usr/share/doc/camrelay/copyright
[ "$(head -n 1 "$copyright")" = "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/" ] ||
  fail "the copyright is not in Debian's machine-readable format: $(head -n 1 "$copyright")"
[ "$(sed -n 's/^License: //p' "$copyright" | sort -u)" = Apache-2.0 ] ||
  fail "the copyright names other licences than Apache-2.0: $(grep '^License:' "$copyright")"
changelog_version=$(zcat "$root/usr/share/doc/camrelay/changelog.gz" | dpkg-parsechangelog -l - -S Version 2>&1)
[ "$changelog_version" = "$version" ] || fail "the changelog's last entry is $changelog_version, not $version"

# The installed programs run: every library they need is on this machine.
bin=$root/usr/bin
for program in camrelay camrelay-unit; do
  [ "$("$bin/$program" --version 2>&1)" = "$program $version" ] ||
    fail "$program --version says '$("$bin/$program" --version 2>&1)'"
done

# The example host, built against the installed library alone, then logging
# in over UDP from a port the system picks (0) to the installed unit. ccache,
# when there, makes the second run of this test cheap.
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
  die "the example host does not build with find_package(camrelay): $(tail -n 20 "$work/cmake.log")"
found=$(sed -n 's/^camrelay_DIR:PATH=//p' "$work/with-cmake/build/CMakeCache.txt" 2>/dev/null)
[ "$found" = "$root/usr/$libdir/cmake/camrelay" ] || fail "find_package(camrelay) found '$found', not the installed one"
"$source/tests/windows/with-unit.sh" "$bin/camrelay-unit" "$work/unit" --empty -- \
  sh -c 'timeout 30 "$0" 127.0.0.1 "$CAMRELAY_UNIT_PORT" 0 123456' "$work/with-cmake/build/example_host" \
  >"$work/host.log" 2>&1 ||
  fail "the example host could not log in to the installed unit: $(tail -n 5 "$work/host.log")"

# dpkg's removal: nothing may remain.
"${dpkg[@]}" -r camrelay >>"$work/dpkg.log" 2>&1 || fail "dpkg -r failed: $(grep -v 'files list file' "$work/dpkg.log")"
[ -z "$(find "$root" -mindepth 1)" ] || fail "dpkg -r left $(find "$root" -mindepth 1 | head -n 5)"
! dpkg-query --admindir="$admin" -W camrelay >/dev/null 2>&1 || fail "dpkg still knows camrelay after its removal"

[ "$failures" -eq 0 ] || { echo "$failures failure(s)" >&2; exit 1; }
echo "package: $(basename "$deb") built, installed, run, built against and removed"
