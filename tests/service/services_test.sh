#!/usr/bin/env bash
# Checks the services of the installed packages on a system that systemd has booted: they start with
# the commands of the operator's page, as a user without privileges; reload; start again after a
# crash or when they hang, but not after another manager has taken over; and leave no sockets.
#
# Changes /etc/zuskux: boot_test.sh runs it in a virtual machine.
set -euo pipefail
export LC_ALL=C SYSTEMD_PAGER=''

readonly SITE=/etc/zuskux/site.txtpb CONTROL=/run/zuskux-manager/manager.sock
readonly EXAMPLE=/usr/share/zuskux/sites/two_uplinks.txtpb
# In fifths of a second. The watchdog alone takes 60 s.
readonly PATIENCE=900

fail() {
  echo "FAILED: $*"
  systemctl status --full --lines 30 zuskux-hal zuskux-manager || true
  exit 1
}

trap 'fail "line $LINENO: $BASH_COMMAND"' ERR

# until_true WHAT COMMAND...: waits until the command succeeds.
until_true() {
  local what=$1 tries
  shift
  for ((tries = 0; tries < PATIENCE; tries++)); do
    if "$@"; then
      return
    fi
    sleep 0.2
  done
  fail "never: $what"
}

property() { systemctl show --property "$2" --value "$1"; }
active() { [ "$(property "$1" ActiveState)" = active ]; }
pid() { property "$1" MainPID; }
in_order() { zuskux-manager status --control "$CONTROL" >/tmp/status 2>&1; }
object_is() { zuskux-manager objects --control "$CONTROL" | grep " $1  *$2\$" >/dev/null; }
# restarts UNIT: how often systemd has started it again by itself.
restarts() { property "$1" NRestarts; }
restarted() { [ "$(restarts "$1")" -eq "$2" ] && active "$1"; }
# logged UNIT LEVEL TEXT: whether the journal has such a line. grep reads it all, for journalctl's sake.
logged() { journalctl --unit "$1" --output cat PRIORITY="$2" | grep "$3" >/dev/null; }

echo 'without a site: the manager does not start'
systemctl start zuskux-manager
[ "$(property zuskux-manager ActiveState)" = inactive ] || fail 'it has started'
[ "$(property zuskux-manager ConditionResult)" = no ] || fail 'zuskux-manager is inactive for another reason'
systemctl stop zuskux-hal

echo "the operator's commands: both are ready"
mapfile -t commands < <(sed -n 's/^    \(install -D .*\|systemctl enable --now .*\)$/\1/p' \
  /usr/share/doc/zuskux-tools/operating.md)
[ ${#commands[@]} -eq 2 ] || fail "the page has other commands: ${commands[*]}"
cp "$EXAMPLE" /tmp/site.txtpb
(cd /tmp && for command in "${commands[@]}"; do bash -ec "$command"; done)
for unit in zuskux-hal zuskux-manager; do
  active "$unit" || fail "$unit is not active"
  systemctl is-enabled --quiet "$unit" || fail "$unit does not start at the next boot"
done
until_true 'the manager is in order' in_order
until_true 'the journal has the line with its level' logged zuskux-manager 6 'in sync after '

echo 'they run as a user without privileges'
user=$(stat -c %u "/proc/$(pid zuskux-hal)")
[ "$user" -ne 0 ] || fail 'they run as root'
for unit in zuskux-hal zuskux-manager; do
  grep -qx $'NoNewPrivs:\t1' "/proc/$(pid "$unit")/status" || fail "$unit may gain privileges"
  grep -qx $'CapEff:\t0000000000000000' "/proc/$(pid "$unit")/status" || fail "$unit is privileged"
  grep -qx $'Seccomp:\t2' "/proc/$(pid "$unit")/status" || fail "$unit may make any system call"
  [ "$(stat -c %u "/proc/$(pid "$unit")")" = "$user" ] || fail "$unit runs as another user"
  [ "$(stat -c '%a %u' "/run/$unit/")" = "700 $user" ] || fail "others may enter /run/$unit"
done

echo 'reload: the manager reads the site again'
echo 'vlan { id: 23 name: "another-lan" interface: "eth2" mtu: 1500 list_value: "eth2.23" }' >>"$SITE"
before=$(pid zuskux-manager)
systemctl reload zuskux-manager
until_true 'the new object is installed' object_is another-lan installed
: >"$SITE"
! systemctl reload zuskux-manager || fail 'an empty site is taken'
object_is another-lan installed || fail 'an empty site has removed what was there'
[ "$(pid zuskux-manager)" = "$before" ] || fail 'zuskux-manager was restarted instead'
cp "$EXAMPLE" "$SITE"
systemctl reload zuskux-manager
until_true 'the object is removed' object_is another-lan removed

echo 'killed: they start again, and the manager installs everything'
systemctl kill --signal KILL zuskux-hal
until_true 'the HAL server has started again' restarted zuskux-hal 1
until_true 'the manager is in order' in_order
systemctl kill --signal KILL zuskux-manager
until_true 'the manager has started again' restarted zuskux-manager 1
until_true 'the manager is in order' in_order

echo 'hung: the watchdog ends them, and they start again'
for unit in zuskux-hal zuskux-manager; do
  kill -STOP "$(pid "$unit")"
  until_true "$unit has started again" restarted "$unit" 2
  logged "$unit" 3 'Watchdog timeout' || fail "$unit ended for another reason"
done
until_true 'the manager is in order' in_order

echo 'another manager takes over: ours ends and stays so'
zuskux-manager "$SITE" --hal unix:/run/zuskux-hal/hal.sock --take-over >/tmp/table
until_true 'our manager has ended' eval '[ "$(property zuskux-manager ActiveState)" = failed ]'
[ "$(property zuskux-manager ExecMainStatus)" -eq 4 ] || fail 'it ended with another status'
[ "$(restarts zuskux-manager)" -eq 2 ] || fail 'it was started again'

echo 'wrong usage: the server is not started again'
mkdir -p /run/systemd/system/zuskux-hal.service.d
printf '[Service]\nExecStart=\nExecStart=/usr/bin/zuskux-hal --mistyped\n' \
  >/run/systemd/system/zuskux-hal.service.d/test.conf
systemctl daemon-reload
! systemctl restart zuskux-hal 2>/tmp/error || fail 'it has started'
[ "$(property zuskux-hal ExecMainStatus)" -eq 2 ] || fail 'it ended with another status'
[ "$(property zuskux-hal ActiveState)" = failed ] || fail 'it was restarted'
rm -r /run/systemd/system/zuskux-hal.service.d
systemctl daemon-reload

echo 'started again and stopped: their sockets are gone'
systemctl start zuskux-hal zuskux-manager
until_true 'the manager is in order' in_order
systemctl stop zuskux-manager zuskux-hal
for unit in zuskux-hal zuskux-manager; do
  [ "$(property "$unit" Result)" = success ] || fail "$unit did not end with success"
  [ ! -e "/run/$unit" ] || fail "/run/$unit is still there"
done

echo 'removed: no unit is left'
dpkg --purge zuskux-tools >/dev/null
systemctl daemon-reload
[ "$(property zuskux-hal LoadState)" = not-found ] || fail 'zuskux-hal is still known'
