#!/usr/bin/env bash
# Fails, naming the files, when a C++ source of the repository is not formatted as .clang-format
# says. Fix with: clang-format -i FILE...
set -euo pipefail
cd "$(dirname "$0")/.."
report=$(mktemp)
trap 'rm -f "$report"' EXIT
# Tracked and new files, less those deleted in the working tree.
git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h' |
    while IFS= read -r file; do [ -f "$file" ] && printf '%s\0' "$file"; done |
    xargs -0 -r -n 16 -P "$(nproc)" clang-format --dry-run --Werror 2>"$report" || true
if [ -s "$report" ]; then
    grep -oE '^[^ :]+:[0-9]+:[0-9]+: error' "$report" | cut -d: -f1 | sort -u |
        sed 's/^/Not formatted with clang-format: /' >&2
    grep -q ': error' "$report" || cat "$report" >&2
    exit 1
fi
