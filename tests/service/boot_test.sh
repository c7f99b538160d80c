#!/usr/bin/env bash
# Boots a minimal Debian with the packages in a virtual machine, and checks the services there
# (services_test.sh). First installs missing packages (Debian 12 or 13).
#
#     boot_test.sh PACKAGES    the folder with the .deb files that ./package builds
#
# The machine's Debian has the release and the architecture (amd64) of this system.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
. "$root/scripts/setup.sh"
install_packages "${VM_PACKAGES[@]}" mmdebstrap libarchive-tools

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# mmdebstrap may act as another user.
chmod 755 "$work"
mkdir "$work/install"
cp "$1"/libzuskux0_*.deb "$1"/zuskux-tools_*.deb "$here/services_test.sh" "$work/install"

echo '== a minimal Debian with the packages'
mmdebstrap --quiet --variant=minbase --include=systemd-sysv \
  --customize-hook="copy-in $work/install /" \
  --customize-hook='chroot "$1" env DEBIAN_FRONTEND=noninteractive \
    sh -c "apt-get install -qq --no-install-recommends /install/*.deb"' \
  "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$work/system.tar" >"$work/log" 2>&1 || {
  cat "$work/log" >&2
  exit 1
}
bsdtar -c -f "$work/system" --format newc "@$work/system.tar"

echo '== the services, as systemd starts them'
"$root/tests/linux/vm" --timeout 3600 --system "$work/system" /install/services_test.sh
