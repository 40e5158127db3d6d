#!/usr/bin/env bash
# Fetches the XMP Toolkit SDK (as Debian's source package exempi carries it, with its Linux port) below .deps/, unless it
# is there. apt works on a private state: the machine's own sources and lists stay as they are.
set -euo pipefail

package=exempi version=2.6.3-1
tarball=exempi_2.6.3.orig.tar.xz folder=exempi-2.6.3
sha256=80b3aa0b7f54978c6a49cc5f5f1d3b6e9524b59de74ef92b3bf0abeba4c28fb1

root=$(cd "$(dirname "$0")/.." && pwd)
deps=$root/.deps/xmp-toolkit
[ -f "$deps/$folder/.complete" ] && exit 0

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$deps" "$work/lists/partial" "$work/cache/archives/partial" "$work/parts"

fail() {
    echo "get-xmp-toolkit: $1" >&2
    exit 1
}

# The archive this machine installs from, asked for sources instead of binaries.
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
[ -f "$keyring" ] && signed="[signed-by=$keyring] " || signed=
apt-get indextargets --format '$(ORIGIN) $(CODENAME) $(COMPONENT) $(REPO_URI)' 'Created-By: Packages' |
    awk -v signed="$signed" '$1 == "Debian" && $2 == "bookworm" && $3 == "main" { print "deb-src " signed $4 " " $2 " main"; exit }' \
        >"$work/sources.list"
[ -s "$work/sources.list" ] || fail "apt knows no Debian 12 main archive (run apt-get update once), so the XMP Toolkit cannot be fetched"

private_apt() {
    apt-get -qq -o Dir::Etc::sourcelist="$work/sources.list" -o Dir::Etc::sourceparts="$work/parts" \
        -o Dir::State::lists="$work/lists" -o Dir::Cache="$work/cache" -o APT::Sandbox::User= "$@"
}
(
    cd "$work"
    private_apt update && private_apt source --download-only "$package=$version"
) >"$work/log" 2>&1 || fail "the source package $package $version could not be downloaded: is there a network? ($(tail -1 "$work/log"))"

echo "$sha256  $work/$tarball" | sha256sum --quiet --check - >/dev/null 2>&1 ||
    fail "$tarball is not the file this project was built with (its SHA-256 differs)"
rm -rf "${deps:?}/$folder"
tar -xf "$work/$tarball" -C "$deps"
touch "$deps/$folder/.complete"
