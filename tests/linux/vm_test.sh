#!/usr/bin/env bash
# Checks that tests/linux/vm does what its comment says.
#
#     vm_test.sh [--boot]
#
# Without --boot, checks only its errors before it starts a machine.
set -euo pipefail

vm=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/vm
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# refuses ERROR ARG...: checks that the tool exits with status 125 and this one line. If $path is
# set, the tool finds its programs there.
refuses() {
  local expected=$1 status=0
  shift
  env PATH="${path-$PATH}" "$vm" "$@" >"$work/output" 2>&1 || status=$?
  [ "$status" -eq 125 ] || fail "tests/linux/vm $*: exit status $status"
  [ "$(cat "$work/output")" = "tests/linux/vm: $expected" ] ||
    fail "tests/linux/vm $*: $(cat "$work/output")"
}

usage='tests/linux/vm [--timeout SECONDS] [--with PATH]... [--system ARCHIVE] COMMAND'
refuses "no command. Use: $usage"
refuses "no command. Use: $usage" --timeout 5
refuses "unknown option --boot. Use: $usage" --boot true
refuses '--timeout needs a value' --timeout
refuses '--timeout takes whole seconds, not "1.5"' --timeout 1.5 true
refuses "--with: there is no $work/missing" --with "$work/missing" true
refuses "--system: there is no file $work" --system "$work" true
refuses '--with does not add to the archive of --system' --system "$0" --with / true

# Only the programs that every system has, and those of the packages named so far.
mkdir "$work/bin"
for program in bash dirname; do
  ln -s "$(type -P "$program")" "$work/bin"
done
without() {
  path=$work/bin refuses "$1 is missing. Install it: apt-get install $2" true
  ln -s "$(type -P bash)" "$work/bin/$1"
}
without qemu-system-x86_64 qemu-system-x86
without busybox busybox-static
without ip iproute2
without tcpdump tcpdump

# In a tree without the kernel, with an apt that fails.
mkdir -p "$work/tree/tests/linux"
cp "$vm" "$work/tree/tests/linux"
for program in awk id mkdir mktemp rm; do
  ln -s "$(type -P "$program")" "$work/bin"
done
for program in apt-get apt-cache; do
  printf '#!/bin/sh\nexit 1\n' >"$work/bin/$program"
  chmod +x "$work/bin/$program"
done
vm=$work/tree/tests/linux/vm path=$work/bin refuses \
  'the kernel, linux-image-cloud-amd64, cannot be downloaded. Run: apt-get update' true

if [ "${1-}" != --boot ]; then
  echo 'all checks passed; no machine was started'
  exit
fi

# In one run: arguments, folder, files, programs, the kernel, both streams, the exit status.
mkdir -p "$work/folder/deeper"
echo 'from the folder' >"$work/folder/deeper/file"
cat >"$work/script" <<'SCRIPT'
echo "$#: $*"
echo "$PWD, $(cat deeper/file)"
echo "an error" >&2
ping 127.0.0.1 >/dev/null &
tcpdump -tqn -c 1 -i lo icmp 2>/dev/null | cut -d, -f1
kill $!
ip link add under type dummy && ip link set under up && echo dummy
ip link add zv9 type vrf table 9 && echo vrf
ip link add link under name under.9 type vlan id 9 && echo vlan
ip link add link under name zd9 type macvlan mode private && echo macvlan
ip link add one type veth peer name two && echo veth
ip -6 nexthop add id 9 encap mpls 16/17 via fe80::9 dev under onlink && echo mpls
[ -c /dev/net/tun ] && echo tun
printf 'no end of line'
exit 7
SCRIPT
status=0
(cd "$work/folder" && "$vm" --with "$work/folder" bash "$work/script" 'a  b' "it's" '$HOME') \
  >"$work/output" 2>"$work/error" || status=$?
[ "$status" -eq 7 ] || fail "exit status $status instead of 7: $(cat "$work/output" "$work/error")"
[ ! -s "$work/error" ] || fail "errors: $(cat "$work/error")"
cat >"$work/expected" <<EXPECTED
3: a  b it's \$HOME
$work/folder, from the folder
an error
IP 127.0.0.1 > 127.0.0.1: ICMP echo request
dummy
vrf
vlan
macvlan
veth
mpls
tun
EXPECTED
printf 'no end of line' >>"$work/expected"
cmp "$work/expected" "$work/output" || fail "the output: $(cat "$work/output")"

status=0
"$vm" --timeout 2 sleep 1000 >"$work/output" 2>&1 || status=$?
[ "$status" -eq 124 ] || fail "exit status $status at the timeout: $(cat "$work/output")"
grep -qx 'tests/linux/vm: ended after 2 s; --timeout allows more' "$work/output" ||
  fail "at the timeout: $(cat "$work/output")"

status=0
"$vm" busybox reboot -f >"$work/output" 2>&1 || status=$?
[ "$status" -eq 125 ] || fail "exit status $status after a reboot: $(cat "$work/output")"
[ "$(tail -n 1 "$work/output")" = 'tests/linux/vm: the machine ended before the command did' ] ||
  fail "after a reboot: $(cat "$work/output")"
echo 'all checks passed'
