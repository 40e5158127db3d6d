#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes .deps/arm-sysroot: the libraries this project and its tests need, for 32-bit ARM, from Debian's main archive with
# all they depend on. Does nothing when it is there for the same packages. Ends with 3 when the packages cannot be had.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
source "$root/cmake/setup.sh"
mapfile -t packages < <(printf '%s\n' "${mu_build_packages[@]}" "${mu_test_packages[@]}" | grep -e '-dev$')
sysroot=$root/.deps/arm-sysroot
[ "$(cat "$sysroot/.complete" 2>/dev/null)" = "${packages[*]}" ] && exit 0

source "$root/cmake/private-apt.sh"
private_apt_sources deb
# Without an installed package apt names all dependencies. The security suite of this architecture is not always in step.
touch "$work/status"
arm_apt() { private_apt -o APT::Architecture=armhf -o APT::Architectures=armhf -o Dir::State::status="$work/status" "$@"; }
arm_apt update && arm_apt install --yes --no-install-recommends --download-only "${packages[@]}" ||
    fail "the packages for armhf could not be downloaded: is there a network? ($(tail -1 "$work/log"))"

mkdir -p "$root/.deps"
rm -rf "$sysroot" "$sysroot.part"
mkdir "$sysroot.part"
for package in "$work"/cache/archives/*.deb; do
    dpkg -x "$package" "$sysroot.part"
done
# A link such as libz.so -> /lib/... means the sysroot's /lib, not the machine's.
find "$sysroot.part" -type l -lname '/*' -printf '%p\t%l\n' | while IFS=$'\t' read -r link target; do
    ln -sfnr "$sysroot.part$target" "$link"
done
echo "${packages[*]}" >"$sysroot.part/.complete"
mv "$sysroot.part" "$sysroot"
