#!/usr/bin/env bash
# The test command under a competing load: a clean clone of HEAD, then the test command as many
# times as asked (default 3) while stress-ng keeps every core busy. Prints each run's time and
# result; exits non-zero when any run failed.
#   bash scripts/loaded-tests.sh [RUNS]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
runs=${1:-3}
"$root/scripts/setup.sh"

work=$(mktemp -d /tmp/loaded-tests.XXXXXX)
git clone -q "$root" "$work/clone"
git -C "$work/clone" checkout -q "$(git -C "$root" rev-parse HEAD)"
stress-ng --cpu "$(nproc)" --timeout 0 >/dev/null 2>&1 &
stress=$!
trap 'kill $stress 2>/dev/null; wait $stress 2>/dev/null; rm -rf "$work"' EXIT

failed=0
for run in $(seq 1 "$runs"); do
    started=$SECONDS
    status=0
    CI=true bash "$work/clone/.ci/run" >"$work/run$run.log" 2>&1 || status=$?
    summary=$(grep -E "tests passed" "$work/run$run.log" || echo "no summary")
    echo "run $run under load: $((SECONDS - started)) s, exit $status, $summary"
    if [ "$status" -ne 0 ]; then
        failed=1
        grep -A20 "The following tests FAILED" "$work/run$run.log" || tail -n 20 "$work/run$run.log"
    fi
done
exit $failed
