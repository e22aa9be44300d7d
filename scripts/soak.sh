#!/usr/bin/env bash
# The full soak: 1000 queries in a row (or as many as the first argument says) through the real
# server against three virtual cameras, then 8 clients in parallel.
set -euo pipefail
source "$(dirname "$0")/common.sh"
prepare_quietly
start_prefix
cd "$build"
SOAK_QUERIES=${1:-1000} ctest --output-on-failure --timeout 3600 -R '^Soak\.'
