#!/usr/bin/env bash
# Every test: installs what is missing, then builds and runs the test suite three times:
# a plain build, AddressSanitizer+UndefinedBehaviorSanitizer, and ThreadSanitizer for the
# concurrency tests (suites named "...Concurrency"); then runs each fuzz target for a minute.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/install-deps.sh"
jobs=$(nproc)

echo "== plain build"
"$top/scripts/build.sh" "$top/build/test"
ctest --test-dir "$top/build/test" -j "$jobs" --output-on-failure

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
"$top/scripts/build.sh" "$top/build/asan" -DZMU_SANITIZE=address -DZMU_BUILD_BENCH=OFF -DZMU_BUILD_EXAMPLES=OFF
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --test-dir "$top/build/asan" -j "$jobs" --output-on-failure

echo "== ThreadSanitizer (concurrency tests)"
"$top/scripts/build.sh" "$top/build/tsan" -DZMU_SANITIZE=thread -DZMU_BUILD_BENCH=OFF -DZMU_BUILD_EXAMPLES=OFF
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
    ctest --test-dir "$top/build/tsan" -j "$jobs" --output-on-failure -R 'Concurrency'

echo "== fuzz"
# A minute for each target keeps the whole run well inside the CI budget; longer runs: run-fuzz.sh N.
"$top/scripts/run-fuzz.sh" 60
