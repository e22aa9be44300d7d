# Shared by run.sh, test.sh, bench.sh and soak.sh; sourced, not run.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD_DIR:-$root/build}
prefix=$build/wineprefix

wine_run() { "$root/scripts/wine.sh" run "$prefix" "$@"; }

# Installs what is missing and builds the targets given (everything when none).
prepare() {
    "$root/scripts/setup.sh"
    BUILD_DIR=$build "$root/scripts/build.sh" "$@"
}

# The same with the build's output kept in build/build.log, and shown only when it fails.
prepare_quietly() {
    "$root/scripts/setup.sh"
    mkdir -p "$build"
    if ! BUILD_DIR=$build "$root/scripts/build.sh" "$@" >"$build/build.log" 2>&1; then
        tail -n 40 "$build/build.log" >&2
        echo "build failed; the whole log is in $build/build.log" >&2
        return 1
    fi
}

# One persistent wineserver for the prefix until the calling script exits.
start_prefix() {
    "$root/scripts/wine.sh" start "$prefix"
    trap '"$root/scripts/wine.sh" stop "$prefix"' EXIT
}

# The build's prefix has no camera of its own.
register_default_camera() {
    wine_run "$build/bin/VirtualCameraTool.exe" register
    wine_run "$build/bin/VirtualCameraTool.exe" clear
    wine_run "$build/bin/VirtualCameraTool.exe" add-default
}
