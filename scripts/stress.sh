#!/usr/bin/env bash
# The long stress run of the overlapped pipes: the stress tests repeated (50 times by default, or
# as many as the first argument says) in one test process, first on a quiet machine, then while
# stress-ng keeps every core busy. It runs the test program itself, outside ctest, so no per-test
# limit cuts it short; its own limit is an hour per pass.
#   bash scripts/stress.sh [REPEATS]
set -euo pipefail
source "$(dirname "$0")/common.sh"
repeats=${1:-50}
prepare_quietly
start_prefix
cd "$build/bin"

run_stress() {
    PIPE_STRESS_REPEATS=$repeats timeout 3600 "$root/scripts/wine.sh" run "$prefix" \
        "$build/bin/TinyFrameworkTests.exe" --gtest_filter='PipeAsyncStressTest.*'
}

echo "== $repeats repeats of the pipe stress run"
run_stress
echo "== the same while stress-ng keeps every core busy"
stress-ng --cpu "$(nproc)" --timeout 0 >/dev/null 2>&1 &
stress=$!
trap 'kill $stress 2>/dev/null; wait $stress 2>/dev/null' EXIT
run_stress
