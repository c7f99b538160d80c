#!/usr/bin/env bash
# Checks that zlog reads everything that the stand-in reads, in the same way: given the same
# configuration, both write the same.
#
#     compare_zlogs.sh SAMPLES CONFIG STANDIN ZLOG
#
# SAMPLES is the program zlog_samples, CONFIG the configuration that ships, STANDIN and ZLOG the
# folders of the two libraries.
set -euo pipefail

samples=$1 shipped=$2 standin=$3 zlog=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# run LIBRARY FOLDER: leaves in FOLDER what the library wrote, without the times, which are enclosed
# in two Ts.
run() {
  mkdir "$work/$2"
  (
    cd "$work/$2"
    # The program must load this library, whichever one it was built with.
    LD_LIBRARY_PATH=$1 ldd "$samples" | grep -F "=> $1/libzlog.so.1.2 " >/dev/null
    LD_LIBRARY_PATH=$1 "$samples" "$work/config" >enabled 2>errors || {
      cat errors >&2
      exit 1
    }
    sed -E -i 's/T[0-9]{4}(-[0-9]{2}){2} [0-9]{2}(:[0-9]{2}){2}T/DATE/g
               s/T[0-9]{6}T/MICROSECONDS/g; s/T[0-9]{3}T/MILLISECONDS/g' ./*
  )
}

# compare NAME LINES: reads a configuration from standard input; its outputs must have LINES lines.
compare() {
  cat >"$work/config"
  rm -rf "$work/standin" "$work/zlog"
  run "$standin" standin
  run "$zlog" zlog
  diff -r "$work/standin" "$work/zlog" >"$work/differences" || {
    cut -c 1-200 "$work/differences" | head -n 20
    echo "$1: the stand-in and zlog differ" >&2
    exit 1
  }
  local lines
  lines=$(cat "$work/zlog/"* | wc -l)
  [ "$lines" -eq "$2" ] || {
    cut -c 1-200 "$work/zlog/"* | head -n 20
    echo "$1: $lines lines instead of $2" >&2
    exit 1
  }
  echo "$1: the same $lines lines"
}

# Each record ends in a line break, and "two\nlines" has one more. The three categories have a line
# each in "enabled".
compare 'an empty file' 3 </dev/null
compare 'no rules' 3 <<<$'[global]\nbuffer max = 0\n[levels]\nTRACE = 10\n[formats]\nf = "%m%n"'
compare 'the configuration that ships' $((3 + 11 * 6)) \
  < <(sed 's/%d(%F %T)/T&T/; s/%us/T&T/' "$shipped")
compare 'times' $((3 + 12 * 6)) <<'CONF'
[levels]
LOWEST = 1
[formats]
times = "T%d(%F %T)T T%usT T%msT %m%n"
[rules]
zuskux.LOWEST "log"; times
CONF
# Nine levels from HAL_ERROR on, four from ERROR, one from TOP_2; without %n only the break in the text.
every_construct() {
  cat <<'CONF'
# A comment with "a quote, a \ and a backslash at its end \

[global]
buffer max = 0
[levels]
LOWEST=1
TRACE   =   010
HAL_ERROR = 12
# [rules] in a comment
TOP_2 = 253

[formats]
plain="%V %c %F:%L %U: # ; , \%m%n"
Padded_1	= "[%-9V] 100 %m%n"
no_break = "%m|"
[rules]
zuskux.LOWEST "log"; plain
zuskux.HAL_ERROR	>stderr;	plain
zuskux.ERROR   "a log with blanks";   Padded_1
zuskux_vlan.TOP_2 "log"; plain
zuskux_vlan.TRACE "./a log with blanks"; no_break
CONF
}
lines=$((3 + 12 * 6 + 9 * 6 + 4 * 6 + 1 * 6 + 11))
compare 'every construct' "$lines" < <(every_construct)
