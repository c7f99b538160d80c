#!/usr/bin/env bash
# Compares the symbols that the shipped library exports and leaves to its host, and the libraries
# that it needs, with the checked-in lists.
#
#     symbols_test.sh LIBRARY          fails with the difference
#     symbols_test.sh LIBRARY --accept accepts the current state as the expected one
set -euo pipefail

library=$1
expected=$(dirname "${BASH_SOURCE[0]}")

exported() { nm -DC --defined-only "$library" | sed -E 's/^[0-9a-f]* +//' | sort -u; }

# What the platform and the host program provide. Excludes the symbols of the language run-time
# (which carry a version, or are weak hooks) and of protobuf.
left_undefined() {
  nm -DC --undefined-only "$library" | sed -E 's/^ +//' |
    grep -vE '@|^w |^U (google::protobuf|[^(]* google::protobuf)::' | sort -u
}

needed() { readelf -d "$library" | sed -nE 's/.*\((NEEDED|SONAME)\).*\[(.*)\]/\1 \2/p' | sort; }

status=0
for list in exported left_undefined needed; do
  file=$expected/symbols_$list.txt
  if [ "${2:-}" = --accept ]; then
    "$list" >"$file"
  elif ! diff -u --label "expected ($list)" --label "$(basename "$library")" "$file" <("$list"); then
    echo "The $list list changed. If that is intended: $0 $library --accept" >&2
    status=1
  fi
done
exit $status
