#!/usr/bin/env bash
# Installs what the builds and their tests need on Debian 12: the native
# toolchain and test libraries, clang for the fuzz targets, the MinGW-w64 cross
# compilers, Wine and wixl. Safe to run again: it asks apt only for the packages
# that are still missing.
set -euo pipefail

packages=(
    # Native build and tests.
    cmake ninja-build g++ python3 googletest libgtest-dev libgmock-dev libbenchmark-dev libboost-dev clang-format
    # Fuzz targets: clang and its runtimes (libFuzzer, the sanitizers).
    clang libclang-rt-14-dev
    # Windows cross build: compilers, windres and windmc, widl.
    g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 mingw-w64-tools
    # Wine's IDL files for widl, the 64-bit loader, and the `wine`, `wineserver`
    # and `wineboot` commands (the wine64 package alone installs only the
    # loader under /usr/lib/wine).
    libwine-dev wine64 wine
    # The MSI: wixl builds it from the WiX source in installer/.
    wixl
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if ((${#missing[@]} == 0)); then
    echo "setup: all packages present"
    exit 0
fi

echo "setup: installing ${missing[*]}"
as_root=()
if [[ $(id -u) -ne 0 ]]; then
    as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
