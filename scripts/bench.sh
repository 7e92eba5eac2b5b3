#!/usr/bin/env bash
# Builds velmarin-bench and velmarin-cli and prints three tables for one directory (default /tmp): the
# in-process one of velmarin-bench, then the whole-process ones of bench/whole-process.sh (one large
# file) and bench/bulk-import.sh (10,000 small files).
# Usage: scripts/bench.sh [directory] [--size-mib N] [--files 10,1000,10000] [--table-files N]
# The directory needs room for about five times the large file (5 GiB by default).
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BUILD_DIR:-$root/build}"

"$root/scripts/install-deps.sh" --bench
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" >/dev/null
cmake --build "$build" --target velmarin-bench velmarin-cli --parallel "$(nproc 2>/dev/null || echo 2)"

directory=/tmp
size_mib=1024
arguments=("$@")
while [[ $# -gt 0 ]]; do
    case "$1" in
        --size-mib) size_mib="$2"; shift 2 ;;
        --files|--table-files) shift 2 ;;
        *) directory="$1"; shift ;;
    esac
done
"$build/bench/velmarin-bench" "${arguments[@]}"
echo
BUILD_DIR="$build" "$root/bench/whole-process.sh" --size-mib "$size_mib" "$directory"
echo
BUILD_DIR="$build" exec "$root/bench/bulk-import.sh" "$directory"
