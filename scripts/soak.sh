#!/usr/bin/env bash
# The full soak: 1000 queries in a row (or as many as the first argument says) through the real
# server against three virtual cameras, then 8 clients in parallel. It runs the test program
# itself, outside ctest, so no per-test limit cuts it short; its own limit is an hour.
set -euo pipefail
source "$(dirname "$0")/common.sh"
prepare_quietly
start_prefix
cd "$build/bin"
SOAK_QUERIES=${1:-1000} timeout 3600 "$root/scripts/wine.sh" run "$prefix" \
    "$build/bin/EndToEndTests.exe" --gtest_filter='Soak.*'
