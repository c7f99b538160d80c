#!/usr/bin/env bash
# Checks the systemd units: that systemd accepts them, and how much they expose.
#
#     units_test.sh UNITS PROGRAMS    the folders with the units and with the programs
set -euo pipefail

# In tenths, on systemd's scale to 10 ("UNSAFE").
MAX_EXPOSURE=6

command -v systemd-analyze >/dev/null || {
  echo 'Install systemd'
  exit 1
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for unit in "$1"/*.service; do
  # The programs are not installed.
  sed -E "s#^(Exec[A-Z][a-z]*=)[^ ]*/#\1$(realpath "$2")/#" "$unit" >"$work/$(basename "$unit")"
done
[ "$(ls "$work" | wc -l)" -eq 2 ]
systemd-analyze verify --man=no "$work"/*.service >"$work/said" 2>&1
cat "$work/said"
[ ! -s "$work/said" ]
systemd-analyze security --no-pager --offline=yes --threshold="$MAX_EXPOSURE" "$work"/*.service |
  grep Overall
