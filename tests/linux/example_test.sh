#!/usr/bin/env bash
# Runs examples/linux/run with the built programs, and checks what its neighbours captured. Exits
# with 77 if it cannot create network namespaces or mounts of its own.
#
#     example_test.sh SOURCES PROGRAMS
set -euo pipefail

output=$(mktemp)
trap 'rm -f "$output"' EXIT
fail() {
  cat "$output" >&2
  echo "FAILED: $*" >&2
  exit 1
}

if ! unshare --net true 2>/dev/null; then
  echo 'skipped: needs permission to create network namespaces'
  exit 77
fi
# `ip netns exec` needs this.
if ! unshare --mount --propagation slave true 2>/dev/null; then
  echo 'skipped: needs mounts of its own, which a chroot does not have'
  exit 77
fi
# In a chroot, it says so.
folder=$(mktemp -d)
trap 'rm -rf "$output" "$folder"' EXIT
printf '#!/bin/sh\nexit 1\n' >"$folder/unshare"
chmod +x "$folder/unshare"
! PATH=$folder:$PATH "$1/examples/linux/run" "$2" >"$output" 2>&1 || fail 'it starts in a chroot'
grep -q 'ip netns needs / to be a mount point' "$output" || fail 'another error in a chroot'

"$1/examples/linux/run" "$2" >"$output" 2>&1 &
run=$!
wait "$run" || fail "exit status $?"
! ip netns | grep -q "^zuskux-.*-$run\b" || fail "it left a namespace behind: $(ip netns)"

# captured PREFIX: what the neighbours captured for that route.
captured() { sed -n "\\#^== ip route add $1 nhid#,/^\$/s/^port /port /p" "$output"; }
expect() {
  [ "$(captured "$1")" = "$2" ] || fail "the packets for $1: $(captured "$1")"
}
first='port 1: 02:00:00:00:01:01 > 02:00:00:00:02:01'
second='port 2: 02:00:00:00:01:02 > 02:00:00:00:02:02'
expect 203.0.113.0/24 "$first, IPv4, length 98: 198.51.100.1 > 203.0.113.1"
expect 2001:db8:71::/64 "$second, IPv6, length 118: 2001:db8:ff::1 > 2001:db8:71::1"
for host in 1 2 3 4; do
  [ "$(captured 203.0.114.0/24 | grep -cE \
    "^($first|$second), IPv4, length 98: 198\.51\.100\.1 > 203\.0\.114\.$host\$")" -eq 1 ] ||
    fail "not one packet for 203.0.114.$host"
done

lacks() { grep -q "^Skipped, because this kernel lacks it: $1" "$output"; }
lacks 802.1Q || expect 203.0.115.0/24 "port 2: 02:00:00:00:01:03 > 02:00:00:00:02:02,\
 802.1Q, length 102: vlan 20, p 0, IPv4, 198.51.100.1 > 203.0.115.1"
lacks MPLS || captured 203.0.116.0/24 | grep -q "^$first, MPLS .*(label 1201, .*\[S\]" ||
  fail "the packet for 203.0.116.0/24: $(captured 203.0.116.0/24)"
lacks VRF || expect '203.0.113.0/24 vrf zv1' "port 1: 02:00:00:00:01:04 > 02:00:00:00:02:01,\
 IPv4, length 98: 198.51.100.2 > 203.0.113.1"
