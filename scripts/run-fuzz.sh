#!/usr/bin/env bash
# run-fuzz.sh [SECONDS]: builds the libFuzzer targets with clang into build/fuzz and runs each for
# SECONDS (default 60), from a copy of its seed corpus in a scratch directory, so that the seeds in
# the repository stay as they are. Prints the executions of each target; fails on any crash, leak,
# timeout or memory blow-up, leaving the input that found it in build/fuzz/findings/<target>/.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
build="$top/build/fuzz"
targets=(fuzz_response_spec fuzz_format_message fuzz_log_form fuzz_string_table)

CC=clang CXX=clang++ cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZMU_SANITIZE=fuzzer \
    -DZMU_BUILD_FUZZ=ON -DZMU_BUILD_TESTS=OFF -DZMU_BUILD_BENCH=OFF -DZMU_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target zmu_fuzz

scratch=$(mktemp -d "${TMPDIR:-/tmp}/zmu-run-fuzz-XXXXXX")
trap 'rm -rf "$scratch"' EXIT
failed=()
for target in "${targets[@]}"; do
    corpus="$scratch/$target/corpus"
    work="$scratch/$target/work"
    mkdir -p "$corpus" "$work" "$scratch/$target/tmp"
    cp "$top/fuzz/corpus/$target/"* "$corpus/"
    options=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
             -artifact_prefix="$work/")
    [ -f "$top/fuzz/$target.dict" ] && options+=(-dict="$top/fuzz/$target.dict")
    log="$scratch/$target/log"
    status=0
    # The target's own temporary files go to a directory of this run, which goes with the scratch.
    (cd "$work" && TMPDIR="$scratch/$target/tmp" "$build/fuzz/$target" "${options[@]}" "$corpus" >"$log" 2>&1) \
        || status=$?
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    peak=$(sed -n 's/^stat::peak_rss_mb: *//p' "$log" | tail -n 1)
    echo "$target: ${executions:-0} executions in ${seconds} s, peak ${peak:-?} MB, exit status $status"
    if [ "$status" -ne 0 ]; then
        failed+=("$target")
        grep -E "^(SUMMARY|==[0-9]+==ERROR|zmu fuzz check failed)" "$log" | head -n 5 || true
        findings="$build/findings/$target"
        mkdir -p "$findings"
        cp "$log" "$findings/log"
        cp "$work"/* "$findings/" 2>/dev/null || true
        echo "$target: log and input kept in $findings"
    fi
done

if [ ${#failed[@]} -ne 0 ]; then
    echo "run-fuzz: findings in ${failed[*]}"
    exit 1
fi
echo "run-fuzz: no findings"
