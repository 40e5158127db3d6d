# SPDX-License-Identifier: Apache-2.0
# Sourced by the lanes that work in an untouched root of Debian 12, with no environment but PATH, HOME and the proxy
# variables that are set. They need root rights; where no root can be made they call mu_no_root with the reason.

mu_roots=$mu_root/build/pristine
mu_root_tarball=$mu_roots/root.tar

mu_no_root() {
    echo "no pristine root can be made: $1"
    exit 77
}

# mu_leave_root root : takes it away with all that is in it.
mu_leave_root() {
    ! mountpoint -q "$1/proc" || umount "$1/proc"
    rm -rf --one-file-system "$1"
}

# The archives this machine installs from, and how it reaches them. Kept for half a day.
mu_make_root_tarball() {
    [ "$(id -u)" -eq 0 ] || mu_no_root "that needs root"
    (mu_need_packages mmdebstrap git) || mu_no_root "mmdebstrap cannot be installed"
    mkdir -p "$mu_roots"
    [ ! -f "$mu_root_tarball" ] || [ -n "$(find "$mu_root_tarball" -mmin +720)" ] || return 0
    local options=() line
    # Without the lists apt does not say where its archives are.
    apt-get -qq update >"$mu_roots/log" 2>&1 || true
    apt-get indextargets --format 'deb $(REPO_URI) $(CODENAME) main' \
        'Created-By: Packages' 'Origin: Debian' 'Component: main' | grep ' bookworm' >"$mu_roots/sources.list" ||
        mu_no_root "apt knows no Debian 12 archive"
    while read -r line; do
        options+=(--aptopt="$line")
    done < <(apt-config dump | grep -E '^Acquire::(https?|ftp|Check-|Retries).* ".+";$')
    mmdebstrap --variant=apt "${options[@]}" bookworm "$mu_root_tarball" "$mu_roots/sources.list" >"$mu_roots/log" 2>&1 || {
        rm -f "$mu_root_tarball"
        mu_no_root "$(tail -1 "$mu_roots/log")"
    }
}

# mu_unpack_root root : a fresh one; the caller leaves it.
mu_unpack_root() {
    mu_leave_root "$1"
    mkdir -p "$1"
    tar -xf "$mu_root_tarball" -C "$1" || mu_no_root "it cannot be unpacked"
    (chroot "$1" /bin/sh -c ': </dev/null') 2>/dev/null || mu_no_root "its devices cannot be opened here"
    mount -t proc proc "$1/proc" || mu_no_root "proc cannot be mounted"
}

# mu_plainly command... : with no environment but PATH, HOME and the proxy variables.
mu_plainly() {
    local environment=(PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root) name
    for name in {http,https,ftp,all,no}_proxy {HTTP,HTTPS,FTP,ALL,NO}_PROXY; do
        [ -z "${!name:-}" ] || environment+=("$name=${!name}")
    done
    env -i "${environment[@]}" "$@"
}

# mu_in_root root folder command... : in a folder of the root.
mu_in_root() {
    local root=$1 folder=$2
    shift 2
    mu_plainly chroot "$root" /bin/bash -c 'cd "$1" && shift && exec "$@"' - "$folder" "$@"
}
