#!/usr/bin/env bash
# Checks that shipped files, libraries and programs, are hardened:
#
#     hardening_test.sh FILE...
#
# Each must be position-independent, have no stack or segment that is both writable and executable,
# be bound at load time and read-only afterwards (RELRO), use the stack protector, and call the
# fortified variants of the C library's functions. Fails with a line for each missing measure.
set -euo pipefail

status=0
missing() {
  echo "$file: $1" >&2
  status=1
}

# has PATTERN TEXT; a here-string, because a pipe would fail under pipefail.
has() { grep -qE "$1" <<<"$2"; }

for file in "$@"; do
  header=$(readelf -Wh "$file")
  segments=$(readelf -Wl "$file")
  dynamic=$(readelf -Wd "$file")
  imported=$(nm -D --undefined-only "$file")

  has 'Type: +DYN' "$header" || missing 'not position-independent'
  if has ' INTERP ' "$segments" && ! has 'FLAGS_1.* PIE' "$dynamic"; then missing 'not a PIE'; fi
  ! has 'TEXTREL' "$dynamic" || missing 'relocations in the code'
  has 'GNU_STACK .* RW ' "$segments" || missing 'an executable stack, or no GNU_STACK header'
  ! has ' RWE ' "$segments" || missing 'a segment that is writable and executable'
  has ' GNU_RELRO ' "$segments" || missing 'no RELRO'
  has 'BIND_NOW|FLAGS_1.* NOW' "$dynamic" || missing 'no immediate binding'
  has '__stack_chk_fail' "$imported" || missing 'no stack protector'
  unchecked=$(grep -oE '\bv?s?n?f?printf@' <<<"$imported" | sort -u | tr -d '@' | tr '\n' ' ' || true)
  [ -z "$unchecked" ] || missing "unchecked: $unchecked"
done
exit $status
