#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Fetches the XMP Toolkit SDK (as Debian's source package exempi carries it, with its Linux port) below .deps/, unless it
# is there.
set -euo pipefail

package=exempi version=2.6.3-1
tarball=exempi_2.6.3.orig.tar.xz folder=exempi-2.6.3
sha256=80b3aa0b7f54978c6a49cc5f5f1d3b6e9524b59de74ef92b3bf0abeba4c28fb1

root=$(cd "$(dirname "$0")/.." && pwd)
deps=$root/.deps/xmp-toolkit
[ -f "$deps/$folder/.complete" ] && exit 0

source "$root/cmake/private-apt.sh"
private_apt_sources deb-src
cd "$work"
private_apt update && private_apt source --download-only "$package=$version" ||
    fail "the source package $package $version could not be downloaded: is there a network? ($(tail -1 "$work/log"))"

echo "$sha256  $work/$tarball" | sha256sum --quiet --check - >/dev/null 2>&1 ||
    fail "$tarball is not the file this project was built with (its SHA-256 differs)"
mkdir -p "$deps"
rm -rf "${deps:?}/$folder"
tar -xf "$work/$tarball" -C "$deps"
touch "$deps/$folder/.complete"
