#!/usr/bin/env bash
# Builds velmarin-cli and the crash harness and cuts every change to a vault short at each of its
# write boundaries in turn (import, rename, rm, mkdir, passwd, compact with and without room for two
# containers), checking the vault after every cut. The full run uses files of two 16 MiB blocks;
# --quick uses files of one block, as CI does.
# Usage: scripts/crash-harness.sh [--quick]
# Prints the cut points tried and how many survived; exits nonzero unless every one did.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BUILD_DIR:-$root/build}"

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" >/dev/null
cmake --build "$build" --target velmarin-cli velmarin-crash-harness velmarin_crashshim velmarin-batch-import \
    --parallel "$(nproc 2>/dev/null || echo 2)"
exec "$build/tests/support/velmarin-crash-harness" --cli "$build/cli/velmarin-cli" \
    --shim "$build/tests/support/libvelmarin_crashshim.so" \
    --batch-tool "$build/tests/support/velmarin-batch-import" "$@"
