#!/usr/bin/env bash
# Installs what the project needs on Debian 12, and nothing when it is all there.
set -euo pipefail

packages=(
    cmake
    make
    g++-mingw-w64-x86-64-posix
    wine64
    googletest
    nlohmann-json3-dev
    clang-format
    ccache
    stress-ng
    xvfb
    xauth
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
sudo_prefix=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_prefix=(sudo)
fi
"${sudo_prefix[@]}" apt-get update -qq
# Through env, so that the setting reaches apt-get also when sudo resets the environment.
"${sudo_prefix[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
