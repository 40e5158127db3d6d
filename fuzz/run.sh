#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# fuzz/run.sh [SECONDS [TARGET...]]  builds the fuzz targets and runs each (jpeg rewrite trailer xmp edit extractor) for SECONDS
# (60), two at a time, on fuzz/corpus/TARGET/ and on what earlier runs here found. What breaks a target stays in
# build/fuzz/findings/TARGET/ and makes the run fail; the inputs that reached new code stay in build/fuzz/corpus/TARGET/.
# fuzz/run.sh --check [TARGET...]  a fixed number of runs from a fixed seed, so that the same code passes or fails every time;
# searching is what the other form is for.
# fuzz/run.sh --merge   makes fuzz/corpus/ anew: of all of these, the smallest inputs that together reach the same code.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../cmake/setup.sh"
all=(jpeg rewrite trailer xmp edit extractor)
task=run seconds=60 targets=("${all[@]}")
declare -A runs=([jpeg]=10000 [rewrite]=3000 [trailer]=10000 [xmp]=5000 [edit]=400 [extractor]=20000)
if [ "${1:-}" = --merge ]; then
    task=merge
elif [ "${1:-}" = --check ]; then
    task=check
    [ $# -eq 1 ] || targets=("${@:2}")
elif [ $# -gt 0 ]; then
    seconds=$1
    [ $# -eq 1 ] || targets=("${@:2}")
fi
mu_need_packages clang-14 libclang-rt-14-dev
mu_build fuzz fuzzers
out=$mu_root/build/fuzz

# Inputs are small, as the stills they make are; so is the memory allowed.
limits=(-max_len=8192 -timeout=20 -rss_limit_mb=1024 -malloc_limit_mb=64)

# One target; its last line tells what it did, and what broke when something did.
run_target() {
    local target=$1 dict=$mu_root/fuzz/dict/$1.dict log=$out/fuzz-$1.log status=0 known=$out/corpus/$1
    local start=() extent=(-max_total_time="$seconds") inputs=("$mu_root/fuzz/corpus/$target")
    if [ $task = check ]; then
        known=$out/check/$target # what earlier runs here found would change the order
        rm -rf "$known"
        # Nor may addresses, the order of a folder's files or what is read of it again each second.
        ! setarch -R true 2>/dev/null || start=(setarch -R)
        (IFS=, && LC_ALL=C && files=("${inputs[0]}"/*) && echo -n "${files[*]}" >"$out/$target.inputs")
        extent=(-runs="${runs[$target]}" -seed=1 -reload=0 -seed_inputs="@$out/$target.inputs")
        inputs=()
    fi
    [ -f "$dict" ] || dict=$mu_root/fuzz/dict/heif.dict
    mkdir -p "$known" "$out/findings/$target"
    "${start[@]}" "$out/fuzz/fuzz_$target" "${limits[@]}" "${extent[@]}" -dict="$dict" -print_final_stats=1 \
        -artifact_prefix="$out/findings/$target/" "$known" "${inputs[@]}" >"$log" 2>&1 || status=$?
    printf '%-8s %s executions, %s edges, %s features, %s\n' "$target" \
        "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
        "$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)" \
        "$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)" \
        "$([ $status -eq 0 ] && echo "nothing found" || echo "FOUND, see $log and findings/$target:")"
    [ $status -eq 0 ] || grep -m 8 -aE 'does not hold|ERROR|runtime error|SUMMARY|Test unit written' "$log" || tail -5 "$log"
    return $status
}

# Only inputs that reach an edge no smaller one does: a corpus that fits beside the sources.
merge_target() {
    local target=$1 merged=$out/merged/$1 from=() folder
    rm -rf "$merged" && mkdir -p "$merged"
    for folder in "$out/corpus/$target" "$mu_root/fuzz/corpus/$target"; do
        [ ! -d "$folder" ] || from+=("$folder")
    done
    mu_run_quietly "merging $target" "$out/fuzz/fuzz_$target" "${limits[@]}" -merge=1 -use_counters=0 "$merged" "${from[@]}"
    rm -rf "${mu_root:?}/fuzz/corpus/$target" && mkdir -p "$mu_root/fuzz/corpus" && mv "$merged" "$mu_root/fuzz/corpus/"
    printf '%-8s %s\n' "$target" "$(du -sh --apparent-size "$mu_root/fuzz/corpus/$target" | cut -f1)"
}

export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=0 UBSAN_OPTIONS=print_stacktrace=1
if [ $task = merge ]; then
    for target in "${all[@]}"; do merge_target "$target"; done
    exit
fi
failed=0 running=0
for target in "${targets[@]}"; do
    if [ $running -eq 2 ]; then
        wait -n || failed=1
        running=1
    fi
    run_target "$target" &
    running=$((running + 1))
done
while [ $running -gt 0 ]; do
    wait -n || failed=1
    running=$((running - 1))
done
exit $failed
