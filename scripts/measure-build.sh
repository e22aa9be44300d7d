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

report() {  # label, command...
    local label=$1 took
    shift
    took=$(seconds_of "$@") || exit 1
    printf '%-44s %s s\n' "$label:" "$took"
}

echo "commit $(git -C "$root" log -1 --format='%h %s' "$commit")"
clone main
clone full
clone second
export CCACHE_DIR=$work/cache-main
report "main job build, clean clone, empty cache" configure_and_build main MainJob
export CCACHE_DIR=$work/cache-full
report "full build, clean clone, empty cache" configure_and_build full
ccache -z >/dev/null 2>&1 || true
report "full build, second clone, warm cache" configure_and_build second
if command -v ccache >/dev/null; then
    echo "  second clone's cache $(ccache -s 2>/dev/null | grep -m1 'Hits:' | sed 's/  */ /g')"
fi

touch "$work/full/DShowCapture/VideoCapture.cpp"
report "rebuild after touching a capture source" cmake --build "$work/full/build" -j"$(nproc)"
touch "$work/full/TinyFramework/Common/TinyCore.h"
report "rebuild after touching a framework header" cmake --build "$work/full/build" -j"$(nproc)"

if [ "$run_tests" = 1 ]; then
    started=$SECONDS
    status=0
    BUILD_DIR=$work/full/build bash "$work/full/scripts/test.sh" >"$work/tests.log" 2>&1 || status=$?
    printf '%-44s %s s, exit %s\n' "test command (build up to date):" "$((SECONDS - started))" "$status"
    grep -E "tests passed|tests failed" "$work/tests.log" | sed 's/^/  /'
    "$work/full/scripts/wine.sh" stop "$work/full/build/wineprefix"
fi
