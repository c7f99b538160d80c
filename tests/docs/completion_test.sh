#!/usr/bin/env bash
# Checks that the bash completion offers each program the options in its --help.
#
#     completion_test.sh COMPLETION PROGRAM...
set -euo pipefail

. "$1"
shift

fail() {
  echo "completion_test: $1" >&2
  exit 1
}

# offered PROGRAM WORD...: prints what is offered for the last word.
offered() {
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  local previous_index=$(($# - 1))
  _zuskux "$1" "${!#}" "${!previous_index}"
  printf '%s\n' "${COMPREPLY[@]}" | sort
}

for program in "$@"; do
  name=$(basename "$program")
  complete -p "$name" | grep -q -- '-F _zuskux' || fail "$name is not completed"
  options=$("$program" --help | grep -oE '^ +(-. \[ )?--[a-z-]+' | grep -oE -- '--[a-z-]+' | sort)
  [ -n "$options" ] || fail "$name has no options"
  [ "$(offered "$program" --)" = "$options" ] || fail "$name offers: $(offered "$program" --)"
  case $name in
    zuskux-manager) commands=$'status\nobjects\nexplain\ngraph\nevents\nwatch\naudit\nreload\nresync\nhelp' ;;
    zuskux-hal) commands=tables ;;
    zuskux-record) commands=$'diff\nreplay\nshow' ;;
    *) commands='' ;;
  esac
  cd / # No file name here looks like a command.
  for command in $commands; do
    offered "$program" "${command:0:2}" | grep -qx "$command" || fail "$name does not offer $command"
  done
done
[ "$(offered "$1" --hal e)" = embedded ] || fail 'embedded is not offered after --hal'
[ "$(offered "$1" --data-plane l)" = linux ] || fail 'linux is not offered after --data-plane'
[ "$(offered "$1" objects --f)" = --failed ] || fail 'objects does not offer --failed'
[ "$(offered "$1" objects --kind h)" = host ] || fail 'host is not offered after --kind'
