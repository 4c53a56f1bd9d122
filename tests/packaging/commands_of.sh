# Sourced by the packaging tests. Prints the commands that a program's own
# --help lists (under "Commands:", or CLI11's own "Subcommands:" for one
# that missed that heading), one a line, each followed by its own
# commands ("db", then "db init"): what the manual and the completion must
# cover.
commands_of() {  # PROGRAM [COMMAND...]
  local program=$1
  shift
  local command
  "$program" "$@" --help | awk '/^(Sub)?[Cc]ommands:$/ { on = 1; next } /^$/ { on = 0 } on && /^  [a-z]/ { print $1 }' |
    while read -r command; do
      echo "${*:+$* }$command"
      commands_of "$program" "$@" "$command"
    done
}

fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}
failures=0
