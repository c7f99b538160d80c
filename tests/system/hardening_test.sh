#!/usr/bin/env bash
# Looks at files that ship, libraries and programs, for what makes their mistakes harder to exploit:
#
#   hardening_test.sh FILE...
#
# Each is position-independent, has no stack or segment that is both writable and executable, is
# bound before it runs and then read-only where it was bound (RELRO), guards its stack, and calls the
# checking forms of the functions that have them. Fails with a line for each that is missing.
set -euo pipefail

status=0
missing() {
  echo "$file: $1" >&2
  status=1
}

# has PATTERN TEXT; a here-string, because a pipe would break under pipefail.
has() { grep -qE "$1" <<<"$2"; }

for file in "$@"; do
  header=$(readelf -Wh "$file")
  segments=$(readelf -Wl "$file")
  dynamic=$(readelf -Wd "$file")
  imported=$(nm -D --undefined-only "$file")

  has 'Type: +DYN' "$header" || missing 'not position-independent'
  if has ' INTERP ' "$segments" && ! has 'FLAGS_1.* PIE' "$dynamic"; then missing 'not a PIE'; fi
  ! has 'TEXTREL' "$dynamic" || missing 'relocations in the code'
  has 'GNU_STACK .* RW ' "$segments" || missing 'an executable stack, or no word on it'
  ! has ' RWE ' "$segments" || missing 'a segment that is writable and executable'
  has ' GNU_RELRO ' "$segments" || missing 'no RELRO'
  has 'BIND_NOW|FLAGS_1.* NOW' "$dynamic" || missing 'no immediate binding'
  has '__stack_chk_fail' "$imported" || missing 'no stack protector'
  unchecked=$(grep -oE '\bv?s?n?f?printf@' <<<"$imported" | sort -u | tr -d '@' | tr '\n' ' ' || true)
  [ -z "$unchecked" ] || missing "unchecked: $unchecked"
done
exit $status
