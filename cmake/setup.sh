# SPDX-License-Identifier: Apache-2.0
# Sourced by ./run, ./test and .ci/run: brings a fresh machine to the point where the project builds. Quick and quiet when
# everything is there already.

mu_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
mu_build_packages=(g++ cmake ninja-build pkg-config xz-utils libexpat1-dev zlib1g-dev android-liblog-dev
    libcli11-dev nlohmann-json3-dev)
mu_test_packages=(libgtest-dev libheif-dev exiv2 python3)
mu_arm_packages=(g++-arm-linux-gnueabihf qemu-user)

mu_fail() {
    echo "setup: $1" >&2
    exit 1
}

# mu_need_packages name... : installs those that are missing, with sudo only when not root.
mu_need_packages() {
    local missing=() name
    for name in "$@"; do
        dpkg-query -W -f '${Status}' "$name" 2>/dev/null | grep -q '^install ok installed' || missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local as_root=() log
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || mu_fail "these packages are missing and there is no sudo to install them: ${missing[*]}"
        as_root=(sudo)
    fi
    echo "setup: installing ${missing[*]}" >&2
    log=$(mktemp)
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq)
    if ! "${apt[@]}" install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1; then
        # An old package list is the usual reason; one refresh, one more try.
        "${apt[@]}" update >"$log" 2>&1 && "${apt[@]}" install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1 ||
            mu_fail "apt could not install ${missing[*]}: is there a network? ($(tail -1 "$log"))"
    fi
    rm -f "$log"
}

# mu_need_arm : the cross compiler, the emulator and the sysroot; ends the script in success, but with a line that says
# so, where the packages cannot be had.
mu_need_arm() {
    local log code=0
    log=$(mktemp)
    (mu_need_packages "${mu_arm_packages[@]}") 2>"$log" || code=3
    [ $code -ne 0 ] || "$mu_root/cmake/get-arm-sysroot.sh" 2>>"$log" || code=$?
    if [ $code -eq 3 ]; then
        echo "arm lane skipped: $(tail -1 "$log")"
        rm -f "$log"
        exit 0
    fi
    cat "$log" >&2
    rm -f "$log"
    [ $code -eq 0 ] || mu_fail "the sysroot for arm could not be made"
}

# mu_run_quietly what command... : shows the command's output only when it fails.
mu_run_quietly() {
    local what=$1 log
    shift
    log=$(mktemp)
    if ! "$@" >"$log" 2>&1; then
        tail -60 "$log" >&2
        rm -f "$log"
        mu_fail "$what failed"
    fi
    rm -f "$log"
}

# mu_is_configured preset : the folder of the preset has what the preset builds. "tool" shares the folder of "release",
# which builds the tests as well.
mu_is_configured() {
    local folder=build/${1/#tool/release}
    # A folder configured by an interrupted or older run has no build file yet.
    [ -f "$folder/build.ninja" ] || return 1
    [ "$1" != release ] || grep -q '^METADATA_UTILS_TESTS:[A-Z]*=ON$' "$folder/CMakeCache.txt"
}

# mu_build preset [target...] : configures once, then builds.
mu_build() {
    local preset=$1
    shift
    mu_need_packages "${mu_build_packages[@]}"
    "$mu_root/cmake/get-xmp-toolkit.sh" || exit 1
    cd "$mu_root"
    mu_is_configured "$preset" || mu_run_quietly "configuring ($preset)" cmake --preset "$preset"
    local targets=()
    [ $# -gt 0 ] && targets=(--target "$@")
    mu_run_quietly "building ($preset)" cmake --build --preset "$preset" "${targets[@]}"
}

# mu_say_skipped preset : one line about the tests that the last run of ctest left out, and why; nothing when there were none.
mu_say_skipped() {
    awk '
        /: Skipped$/ { getline reason }
        /^\[  SKIPPED \] .* \([0-9]+ ms\)$/ { count++; names[reason] = names[reason] (names[reason] ? ", " : "") $4 }
        / \.\.\. skipped \047/ { split($0, part, "\047"); count++; names[part[2]] = names[part[2]] (names[part[2]] ? ", " : "") $1 }
        END {
            for (reason in names)
                text = text (text ? "; " : "") names[reason] " (" reason ")"
            if (count)
                print count (count == 1 ? " test" : " tests") " skipped: " text
        }' "$mu_root/build/$1/Testing/Temporary/LastTest.log" 2>/dev/null || true
}
