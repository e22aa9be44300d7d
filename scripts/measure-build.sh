#!/usr/bin/env bash
# Build and test times of one commit, measured on clean clones in one sitting:
#   bash scripts/measure-build.sh [REV] [--no-tests]      (REV defaults to HEAD)
# Prints the main job's build, the full build without and with a warm compiler cache (in a
# second clone in another folder, with the cache's hit rate), a rebuild after touching one source
# file of the capture library and one framework header, and the test command's run.
# Every clone and cache lives in a temporary folder that is removed at the end.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
rev=${1:-HEAD}
run_tests=1
[ "${2:-}" = "--no-tests" ] && run_tests=0
"$root/scripts/setup.sh"

work=$(mktemp -d /tmp/measure-build.XXXXXX)
trap 'rm -rf "$work"' EXIT
commit=$(git -C "$root" rev-parse "$rev")

seconds_of() {
    local started=$SECONDS
    "$@" >>"$work/log" 2>&1 || { tail -n 30 "$work/log" >&2; exit 1; }
    echo $((SECONDS - started))
}

clone() {
    git clone -q "$root" "$work/$1"
    git -C "$work/$1" checkout -q "$commit"
}

configure_and_build() {  # folder [target]
    cmake -S "$work/$1" -B "$work/$1/build" \
        -DCMAKE_TOOLCHAIN_FILE="$work/$1/cmake/mingw-w64-x86_64.cmake" >/dev/null
    if [ -n "${2:-}" ] && grep -q "add_custom_target($2)" -r "$work/$1" --include=CMakeLists.txt; then
        cmake --build "$work/$1/build" -j"$(nproc)" --target "$2"
    else
        # Before the main job had a target of its own, it built everything.
        cmake --build "$work/$1/build" -j"$(nproc)"
    fi
}

echo "commit $(git -C "$root" log -1 --format='%h %s' "$commit")"
export CCACHE_DIR=$work/cache-main
echo "main job build, clean clone, empty cache:   $(seconds_of configure_and_build main MainJob) s"
export CCACHE_DIR=$work/cache-full
echo "full build, clean clone, empty cache:       $(seconds_of configure_and_build full) s"
ccache -z >/dev/null 2>&1 || true
echo "full build, second clone, warm cache:       $(seconds_of configure_and_build second) s"
if command -v ccache >/dev/null; then
    echo "  $(ccache -s 2>/dev/null | grep -m1 'Hits:' | sed 's/  */ /g')"
fi

touch "$work/full/DShowCapture/VideoCapture.cpp"
echo "rebuild after touching a capture source:    $(seconds_of cmake --build "$work/full/build" -j"$(nproc)") s"
touch "$work/full/TinyFramework/Common/TinyCore.h"
echo "rebuild after touching a framework header:  $(seconds_of cmake --build "$work/full/build" -j"$(nproc)") s"

if [ "$run_tests" = 1 ]; then
    started=$SECONDS
    status=0
    BUILD_DIR=$work/full/build bash "$work/full/scripts/test.sh" >"$work/tests.log" 2>&1 || status=$?
    echo "test command (build up to date):            $((SECONDS - started)) s, exit $status"
    grep -E "tests passed|tests failed" "$work/tests.log" | sed 's/^/  /'
    "$work/full/scripts/wine.sh" stop "$work/full/build/wineprefix"
fi
