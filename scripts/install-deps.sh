#!/usr/bin/env bash
# Installs the Debian packages that building and testing Velmarin needs, and only the missing ones.
# Works on Debian 12 and Ubuntu 22.04 or later; uses sudo when not run as root.
# --bench adds the tools the whole-process bench compares with.
set -euo pipefail

packages=(
    build-essential
    cmake
    ninja-build
    pkg-config
    qt6-base-dev
    qt6-base-dev-tools
    qt6-qpa-plugins
    libgl-dev
    libsodium-dev
    libssl-dev
    mingw-w64
    # A private bus for the window's tests of sleep and session locks.
    dbus-daemon
    # The sanitizer build and the fuzz targets; Ubuntu ships the runtimes inside clang itself.
    clang
    libclang-rt-dev
    llvm
    # Real file systems of USB sticks for the tests: FAT32 through FUSE, exFAT on a loop device.
    dosfstools
    fusefat
    exfatprogs
    exfat-fuse
)
# The whole-process benches (bench/whole-process.sh, bench/bulk-import.sh) compare with these and
# count the bulk import's writes with strace; tests never need them.
if [[ "${1:-}" == "--bench" ]]; then
    packages+=(age restic 7zip time strace)
fi

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    if [[ "$status" != "install ok installed" ]]; then
        missing+=("$package")
    fi
done

if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

if ! command -v apt-get >/dev/null 2>&1; then
    echo "Faltam pacotes (${missing[*]}) e este sistema não tem apt-get: instale-os manualmente." >&2
    exit 1
fi

sudo=()
if [[ $(id -u) -ne 0 ]]; then
    sudo=(sudo -n)
fi

export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q
# A name this system's archive does not know (libclang-rt-dev before Debian 12) is left out.
known=()
for package in "${missing[@]}"; do
    if apt-cache show "$package" >/dev/null 2>&1; then
        known+=("$package")
    fi
done
missing=("${known[@]}")
echo "Instalando pacotes: ${missing[*]}"
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
