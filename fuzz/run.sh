#!/usr/bin/env bash
# fuzz/run.sh [SECONDS [TARGET...]]  builds the fuzz targets and runs each (jpeg heif rewrite trailer xmp edit) for SECONDS
# (60), two at a time, on fresh structural seeds and on what earlier runs found. What breaks a target stays in
# build/fuzz/findings/TARGET/ and makes the run fail; the inputs that reached new code stay in build/fuzz/corpus/TARGET/.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../cmake/setup.sh"
seconds=${1:-60}
shift $(($# > 0 ? 1 : 0))
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(jpeg heif rewrite trailer xmp edit)
mu_need_packages clang-14 libclang-rt-14-dev
mu_build fuzz fuzzers
out=$mu_root/build/fuzz
"$out/fuzz/make_seeds" "$out/seeds"

# One target; its last line tells what it did. Inputs are small, as the stills they make are; so is the memory allowed.
run_target() {
    local target=$1 seconds=$2 out=$3 dict=$4/fuzz/dict log
    mkdir -p "$out/corpus/$target" "$out/findings/$target"
    log=$out/fuzz-$target.log
    [ -f "$dict/$target.dict" ] && dict=$dict/$target.dict || dict=$dict/heif.dict
    local status=0
    "$out/fuzz/fuzz_$target" -max_total_time="$seconds" -max_len=8192 -timeout=20 -rss_limit_mb=1024 -malloc_limit_mb=64 \
        -dict="$dict" -artifact_prefix="$out/findings/$target/" -print_final_stats=1 \
        "$out/corpus/$target" "$out/seeds/$target" >"$log" 2>&1 || status=$?
    printf '%-8s %s executions, %s edges, %s features, corpus %s, %s\n' "$target" \
        "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
        "$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)" \
        "$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)" \
        "$(ls "$out/corpus/$target" | wc -l)" \
        "$([ $status -eq 0 ] && echo "nothing found" || echo "FOUND, see $log and findings/$target")"
    return $((status != 0))
}
export -f run_target
export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=0 UBSAN_OPTIONS=print_stacktrace=1
printf '%s\n' "${targets[@]}" | xargs -P2 -I{} bash -c 'run_target "$@"' _ {} "$seconds" "$out" "$mu_root"
