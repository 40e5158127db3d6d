# SPDX-License-Identifier: Apache-2.0
# Sourced by the scripts that fetch from Debian's archive below .deps/. apt works on a private state in the folder $work,
# which goes when the script ends: the machine's own sources, lists and packages stay as they are. All of the script that
# fails because something cannot be had ends it with code 3.

fail() {
    echo "$(basename "$0" .sh): $1" >&2
    exit 3
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/lists/partial" "$work/cache/archives/partial" "$work/parts"

# private_apt_sources deb|deb-src : the archive this machine installs from, its main suite.
private_apt_sources() {
    local keyring=/usr/share/keyrings/debian-archive-keyring.gpg signed=
    [ -f "$keyring" ] && signed="[signed-by=$keyring] "
    apt-get indextargets --format '$(ORIGIN) $(CODENAME) $(COMPONENT) $(REPO_URI)' 'Created-By: Packages' |
        awk -v start="$1 $signed" \
            '$1 == "Debian" && $2 == "bookworm" && $3 == "main" { print start $4 " " $2 " main"; exit }' >"$work/sources.list"
    [ -s "$work/sources.list" ] || fail "apt knows no Debian 12 main archive (run apt-get update once)"
}

# private_apt argument... : apt-get on the private state; what it says goes to $work/log.
private_apt() {
    apt-get -qq -o Dir::Etc::sourcelist="$work/sources.list" -o Dir::Etc::sourceparts="$work/parts" \
        -o Dir::State::lists="$work/lists" -o Dir::Cache="$work/cache" -o APT::Sandbox::User= \
        -o APT::Update::Error-Mode=any "$@" >>"$work/log" 2>&1
}
