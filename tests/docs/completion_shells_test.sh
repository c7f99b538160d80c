#!/usr/bin/env bash
# Checks that the completions for zsh and fish offer each program the options and commands in its
# --help.
#
#     completion_shells_test.sh PACKAGING PROGRAM...
set -euo pipefail

for shell in zsh fish; do
  command -v "$shell" >/dev/null || {
    echo "Install $shell"
    exit 1
  }
done
packaging=$(realpath "$1")
shift

fail() {
  echo "completion_shells_test: $1" >&2
  exit 1
}

# offered SHELL PROGRAM WORD...: prints what is offered for the last word, in zsh before it has
# filtered by that word.
offered() {
  local shell=$1
  shift
  case $shell in
    zsh)
      # What the shell's own completion provides.
      zsh -fc 'compadd() { shift; print -rl -- "$@" }; _files() { : }
        file=$1; shift; words=("$@"); CURRENT=$#
        complete_words() { source $file }; complete_words' zsh "$packaging/completion.zsh" "$@"
      ;;
    fish) fish --no-config -c "source $packaging/completion.fish; complete -C '$*'" ;;
  esac | sort
}

cd / # No file name here looks like a command.
for program in "$@"; do
  name=$(basename "$program")
  PATH=$(dirname "$program"):$PATH
  options=$("$program" --help | grep -oE '^ +(-. \[ )?--[a-z-]+' | grep -oE -- '--[a-z-]+' | sort)
  case $name in
    zuskux-manager) commands=status ;;
    zuskux-hal) commands=tables ;;
    zuskux-record) commands='diff replay show' ;;
    *) commands='' ;;
  esac
  for shell in zsh fish; do
    got=$(offered "$shell" "$name" --)
    [ "$got" = "$options" ] || fail "$shell offers $name: $got"
    for command in $commands; do
      offered "$shell" "$name" "${command:0:2}" | grep -qx "$command" ||
        fail "$shell does not offer $name $command"
    done
    grep -qw "$name" "$packaging/completion.$shell" || fail "$shell does not complete $name"
  done
done
for shell in zsh fish; do
  offered "$shell" zuskux-manager --hal e | grep -qx embedded ||
    fail "$shell does not offer embedded after --hal"
done
