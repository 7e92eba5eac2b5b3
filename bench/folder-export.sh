#!/usr/bin/env bash
# Whole-process figures for velmarin-cli export of a folder beside the export of one file holding the
# same bytes: a folder of 8 files of SIZE/8 MiB (random bytes, in 2 sub-folders, and one empty folder)
# and one file of SIZE MiB, both in one vault; each time minus the unlock (velmarin-cli ls) of the
# same run. Both write through a save file that syncs at its end, so the folder pays 8 syncs where
# the file pays one. Every export is compared byte for byte with its source once.
# Usage: bench/folder-export.sh [--size-mib N] [--runs N] [directory]
# Needs velmarin-cli in BUILD_DIR (default build/). Every time is the best of the runs.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${BUILD_DIR:-$root/build}" && pwd)"
cli="$build/cli/velmarin-cli"
size_mib=512
runs=3
directory=/tmp
while [[ $# -gt 0 ]]; do
    case "$1" in
        --size-mib) size_mib="$2"; shift 2 ;;
        --runs) runs="$2"; shift 2 ;;
        -h|--help) sed -n '2,8p' "$0"; exit 0 ;;
        *) directory="$1"; shift ;;
    esac
done
[[ -x "$cli" ]] || { echo "folder-export: $cli is missing; build it first" >&2; exit 1; }

work="$(mktemp -d "$(cd "$directory" && pwd)/velmarin-folder-export-XXXXXX")"
trap 'rm -rf "$work"' EXIT
cd "$work"
printf '%s' 'senha de medição 2026' > pw
part=$((size_mib / 8))
mkdir -p arvore/um arvore/dois arvore/vazia
for i in 0 1 2 3 4 5 6 7; do
    half=$([[ $i -lt 4 ]] && echo um || echo dois)
    head -c $((part * 1024 * 1024)) /dev/urandom > "arvore/$half/parte$i.bin"
done
cat arvore/um/*.bin arvore/dois/*.bin > inteiro.bin
bytes=$(stat -c %s inteiro.bin)
"$cli" create --new-password-file pw vault.vltx >/dev/null 2>&1
"$cli" import --password-file pw vault.vltx arvore inteiro.bin >/dev/null 2>&1
sync

declare -A seconds
# measure NAME COMMAND...: keeps the shortest time of NAME over the runs.
measure() {
    local name="$1"; shift
    local start end elapsed
    sync
    start=$(date +%s%N)
    if ! "$@" >/dev/null 2>err.txt; then
        echo "folder-export: $name failed: $*" >&2; cat err.txt >&2; exit 1
    fi
    end=$(date +%s%N)
    elapsed=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", (b - a) / 1e9 }')
    if [[ -z "${seconds[$name]:-}" ]] || awk -v x="$elapsed" -v y="${seconds[$name]}" 'BEGIN { exit !(x < y) }'; then
        seconds[$name]=$elapsed
    fi
}

for run in $(seq "$runs"); do
    echo "run $run of $runs" >&2
    rm -rf saida-arquivo.bin saida-pasta
    measure ls "$cli" ls --password-file pw vault.vltx
    measure file "$cli" export --password-file pw vault.vltx inteiro.bin saida-arquivo.bin
    measure folder "$cli" export --password-file pw vault.vltx arvore saida-pasta
    if [[ $run -eq 1 ]]; then
        cmp -s inteiro.bin saida-arquivo.bin || { echo "folder-export: the file differs" >&2; exit 1; }
        diff -r arvore saida-pasta >/dev/null || { echo "folder-export: the folder differs" >&2; exit 1; }
    fi
done

minus() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a - b }'; }
rate() { awk -v b="$bytes" -v s="$1" 'BEGIN { printf "%.0f MB/s", b / 1e6 / s }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

unlock=${seconds[ls]}
file_s=$(minus "${seconds[file]}" "$unlock")
folder_s=$(minus "${seconds[folder]}" "$unlock")
fs="$(df --output=fstype "$work" | tail -n 1)"
echo "bench/folder-export.sh --size-mib $size_mib --runs $runs $directory"
echo "$(date -Iseconds), $(awk -F': ' '/model name/ { print $2; exit }' /proc/cpuinfo), $(nproc) cores, $directory on $fs"
echo
echo "| Command | Time | Minus unlock | Rate | Comparison |"
echo "|---|---:|---:|---:|---|"
echo "| velmarin-cli ls (unlock alone) | $unlock s | - | - | - |"
echo "| velmarin-cli export, 1 file of $size_mib MiB | ${seconds[file]} s | $file_s s | $(rate "$file_s") | - |"
echo "| velmarin-cli export, folder of 8 files of $part MiB | ${seconds[folder]} s | $folder_s s | $(rate "$folder_s") | $(ratio "$folder_s" "$file_s")× the file's time |"
