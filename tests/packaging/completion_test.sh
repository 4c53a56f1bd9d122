#!/usr/bin/env bash
# The bash and zsh completion written at build time: every command the
# programs' help lists is offered where it may be typed, options belong to
# their command, and values complete as files, folders or nothing.
# Usage: completion_test.sh DOCS_DIR CAMRELAY CAMRELAY_UNIT
set -uo pipefail
docs=$1 camrelay=$2
source "$(dirname "$0")/commands_of.sh"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/folder" && touch "$work/firmware.bin"
cd "$work"

source "$docs/bash/camrelay"
source "$docs/bash/camrelay-unit"

# What bash offers for the words given, the last one being completed.
offered() {  # FUNCTION WORD...
  local function=$1
  shift
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  COMPREPLY=()
  "$function"
  [ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\n' "${COMPREPLY[@]}" | sort | tr '\n' ' '
}

expect() {  # EXPECTED FUNCTION WORD...
  local expected=$1 got
  shift
  got=$(offered "$@")
  [ "$got" = "$expected" ] || fail "bash: '${*:2}' offers '$got', not '$expected'"
}

# Every command the help lists, offered where it is typed: after the program,
# or after the command it belongs to ("db"). Then commands chain on one line,
# past the values of the options between them.
while read -r line; do
  read -ra path <<<"$line"
  parent=("${path[@]:0:${#path[@]}-1}")
  got=" $(offered _camrelay camrelay "${parent[@]}" '')"
  [[ $got == *" ${path[-1]} "* ]] || fail "bash: '${path[-1]}' is not offered after 'camrelay ${parent[*]}'"
done < <(commands_of "$camrelay")
first=$(commands_of "$camrelay" | head -n 1)
expect "download-prog download-prog-cam-events " _camrelay camrelay "$first" --code 1234 download-p

# Options belong to their command; the program's own are taken after any
# chained command, and a database command takes only its own.
expect "--images " _camrelay camrelay --tcp preview 1,3 --im
expect "" _camrelay camrelay login --im
expect "--help --output -h -o " _camrelay camrelay db export-log -
expect "--delay --dir --dup " _camrelay_unit camrelay-unit --d

# Values: folders, files, or nothing to propose; a value is never taken
# for a command.
expect "folder " _camrelay camrelay --dir ''
expect "firmware.bin folder " _camrelay camrelay login upload-firmware ''
expect "" _camrelay camrelay --host ''

# zsh: the same walk as bash's is written for it, so what is left to check
# is what zsh's script does its own way: commands and options offered as
# "name:description" items, a colon in a description escaped so that zsh
# splits the item after the name, and folders completed as folders. zsh's
# completion functions are replaced by ones that print what they were asked
# to offer.
zsh_offered() {  # SCRIPT WORD...
  local script=$1
  shift
  zsh -f -c '
    _describe() { print -rl -- "${(@P)${@[-1]}}"; }
    _files() { print -- "_files $*"; }
    _message() { print -- "_message"; }
    source "$1" >/dev/null
    shift
    words=("$@")
    CURRENT=$#
    ${${1//-/_}/#/_}' zsh "$script" "$@"
}
expected=$(commands_of "$camrelay" | awk 'NF == 1' | sort | tr '\n' ' ')
got=$(zsh_offered "$docs/zsh/_camrelay" camrelay '' | sed -nE 's/^([a-z][a-z-]*):([^:\\]|\\.)+$/\1/p' |
  sort | tr '\n' ' ')
[ "$got" = "$expected" ] || fail "zsh: after 'camrelay' it offers '$got', not '$expected'"
[ "$(zsh_offered "$docs/zsh/_camrelay" camrelay --dir '')" = "_files -/" ] || fail "zsh: --dir is not a folder"
zsh_offered "$docs/zsh/_camrelay_unit" camrelay-unit -- | grep -qxF -- '--reset-after:TCP\: reset once after N data packets of a download' ||
  fail "zsh: the colon in the description of camrelay-unit --reset-after is not escaped"

[ "$failures" -eq 0 ] || { echo "$failures failure(s)" >&2; exit 1; }
echo "completion: every command offered in bash and zsh"
