#!/usr/bin/env bash
# The manual pages written at build time: the sections users look for, every
# command the help lists, and the version of the program they describe.
# Usage: man_test.sh DOCS_DIR CAMRELAY CAMRELAY_UNIT
set -uo pipefail
docs=$1 camrelay=$2 unit=$3
source "$(dirname "$0")/commands_of.sh"

# The page's source with roff's escaped hyphens made plain. (Read whole:
# a grep -q that stops early would break the pipe it reads.)
page() { zcat "$docs/$1.1.gz" | sed 's/\\-/-/g'; }
# The lines of one section.
section() { page "$1" | awk -v name="$2" '/^\.SH / { on = ($0 == ".SH " name) ; next } on'; }
has() { grep -q "$@" <<<"$text"; }

check_page() {  # PROGRAM BINARY SECTION...
  local program=$1 binary=$2
  shift 2
  [ -s "$docs/$program.1.gz" ] || { fail "$program.1.gz is missing or empty"; return; }
  local name text
  text=$(page "$program")
  for name in NAME SYNOPSIS DESCRIPTION OPTIONS "$@"; do
    has -xF ".SH $name" || fail "$program(1) has no section $name"
  done
  has "^\.TH $(tr a-z- A-Z- <<<"$program") \"1\" .* \"$("$binary" --version)\"" ||
    fail "$program(1) does not carry the version '$("$binary" --version)'"
  # Every option of the help, in the OPTIONS section.
  local option
  text=$(section "$program" OPTIONS)
  for option in $("$binary" --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | sed 's/.*--/--/'); do
    has -- "$option" || fail "$program(1) does not describe $option"
  done
}

check_page camrelay "$camrelay" COMMANDS '"EXIT STATUS"' ENVIRONMENT FILES EXAMPLES
check_page camrelay-unit "$unit" FILES EXAMPLES

# Every command, nested ones included, under COMMANDS as an entry of its own.
text=$(section camrelay COMMANDS)
while read -r line; do
  has -xF "${line##* }" || fail "camrelay(1) does not list the command '$line'"
done < <(commands_of "$camrelay")
[ -n "$(commands_of "$camrelay")" ] || fail "camrelay --help lists no command"

[ "$failures" -eq 0 ] || { echo "$failures failure(s)" >&2; exit 1; }
echo "man pages: every section, command and option"
