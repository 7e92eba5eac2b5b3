#!/usr/bin/env bash
# Builds velmarin-bench and prints its table for one directory (default /tmp).
# Usage: scripts/bench.sh [directory] [--size-mib N] [--files 10,1000,10000] [--table-files N]
# The directory needs room for about five times the large file (5 GiB by default).
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BUILD_DIR:-$root/build}"

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" >/dev/null
cmake --build "$build" --target velmarin-bench --parallel "$(nproc 2>/dev/null || echo 2)"
exec "$build/bench/velmarin-bench" "$@"
