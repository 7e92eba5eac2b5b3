#!/usr/bin/env bash
# Runs the fuzz targets in the sanitizer build for a given time each (default 300 seconds).
# Usage: scripts/fuzz.sh [seconds] [header|index|path|unlock ...]
# What a run finds is kept in build-sanitize/tests/fuzz/found/<target>; a crashing input is written
# to build-sanitize/tests/fuzz/crashes/ and the script ends with the fuzzer's nonzero status. Such an
# input belongs in tests/fuzz/regressions/<target> once fixed, where every build replays it.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${SANITIZE_DIR:-$root/build-sanitize}"
seconds="${1:-300}"
if [[ $# -gt 0 ]]; then
    shift
fi
targets=("$@")
if [[ ${#targets[@]} -eq 0 ]]; then
    targets=(header index path unlock)
fi
if ! [[ "$seconds" =~ ^[0-9]+$ ]]; then
    echo "uso: scripts/fuzz.sh [segundos] [header|index|path|unlock ...]" >&2
    exit 2
fi

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
    -DCMAKE_CXX_COMPILER=clang++ -DVELMARIN_SANITIZE=ON -DVELMARIN_FUZZ=ON >/dev/null
cmake --build "$build" --parallel "$(nproc 2>/dev/null || echo 2)" \
    --target $(printf 'fuzz_%s ' "${targets[@]}")

fuzz="$build/tests/fuzz"
mkdir -p "$fuzz/crashes"
for target in "${targets[@]}"; do
    if [[ ! -d "$root/tests/fuzz/seeds/$target" ]]; then
        echo "alvo desconhecido: $target" >&2
        exit 2
    fi
    mkdir -p "$fuzz/found/$target"
    inputs=("$root/tests/fuzz/seeds/$target")
    if [[ -d "$root/tests/fuzz/regressions/$target" ]]; then
        inputs+=("$root/tests/fuzz/regressions/$target")
    fi
    echo "== fuzz_$target: $seconds s"
    "$fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=20 -print_final_stats=1 \
        -artifact_prefix="$fuzz/crashes/$target-" "$fuzz/found/$target" "${inputs[@]}"
done
