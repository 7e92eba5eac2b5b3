#!/usr/bin/env bash
# Whole-process figures for a folder of many small files: velmarin-cli import of a tree of 10,000
# files of 1 byte to 64 KiB (seeded sizes, 100 folders) and of 1,000 such files, each minus the
# unlock (velmarin-cli ls) of the same run, beside restic backup (repository on the same file
# system, password from a file) and 7zz a -p -mhe=on -mx=0; then restic restore and 7zz x of the
# same tree. Bytes written to the drive and syncs come from one more run of each under strace, which
# stops only at writes and syncs (--seccomp-bpf) but still slows the run, so velmarin-cli may write
# its index more often there than in the timed runs; with them comes what the same bytes and syncs
# would cost on a USB 2 stick (15 MB/s, 20 ms a sync).
# Usage: bench/bulk-import.sh [--files N] [--runs N] [directory]
# Needs velmarin-cli in BUILD_DIR (default build/; scripts/bench.sh builds it) and restic, 7zz,
# strace and perl (scripts/install-deps.sh --bench installs them). Every time is the best of the runs.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${BUILD_DIR:-$root/build}" && pwd)"
cli="$build/cli/velmarin-cli"
files=10000
runs=3
directory=/tmp
while [[ $# -gt 0 ]]; do
    case "$1" in
        --files) files="$2"; shift 2 ;;
        --runs) runs="$2"; shift 2 ;;
        -h|--help) sed -n '2,10p' "$0"; exit 0 ;;
        *) directory="$1"; shift ;;
    esac
done
[[ -x "$cli" ]] || { echo "bulk-import: $cli is missing; build it first" >&2; exit 1; }
for tool in restic 7zz strace perl; do
    command -v "$tool" >/dev/null || { echo "bulk-import: $tool is missing (scripts/install-deps.sh --bench)" >&2; exit 1; }
done

work="$(mktemp -d "$(cd "$directory" && pwd)/velmarin-bulk-XXXXXX")"
trap 'rm -rf "$work"' EXIT
cd "$work"
password='senha de medição 2026'
printf '%s' "$password" > pw
export RESTIC_PASSWORD_FILE="$work/pw"

# tree COUNT FOLDER: COUNT files of 1 byte to 64 KiB of random bytes in 100 folders, sizes seeded.
tree() {
    perl -e '
        my ($count, $top) = @ARGV;
        srand(2026);
        open(my $random, "<", "/dev/urandom") or die;
        mkdir $top or die;
        for my $folder (0 .. 99) { mkdir sprintf("%s/pasta%02d", $top, $folder) or die; }
        for my $i (0 .. $count - 1) {
            my $size = 1 + int(rand(65536));
            read($random, my $bytes, $size) == $size or die;
            open(my $file, ">", sprintf("%s/pasta%02d/arquivo%05d.bin", $top, $i % 100, $i)) or die;
            print $file $bytes;
            close $file or die;
        }' "$1" "$2"
}
tree "$files" arvore
tree 1000 arvore-mil
data=$(du -sb --apparent-size arvore | cut -f1)
mkdir empty drive
"$cli" create --new-password-file pw empty >/dev/null 2>&1
sync

declare -A seconds
# measure NAME COMMAND...: keeps the shortest time of NAME over the runs.
measure() {
    local name="$1"; shift
    local start end elapsed
    sync
    start=$(date +%s%N)
    if ! "$@" >/dev/null 2>err.txt; then
        echo "bulk-import: $name failed: $*" >&2; cat err.txt >&2; exit 1
    fi
    end=$(date +%s%N)
    elapsed=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", (b - a) / 1e9 }')
    if [[ -z "${seconds[$name]:-}" ]] || awk -v x="$elapsed" -v y="${seconds[$name]}" 'BEGIN { exit !(x < y) }'; then
        seconds[$name]=$elapsed
    fi
}

# fresh: an empty drive folder, and in it what each tool starts from.
fresh() {
    rm -rf drive && mkdir drive
    cp empty/velmarin.vltx drive/velmarin.vltx
    cp empty/velmarin.vltx drive/mil.vltx
    restic init --repo drive/restic -q >/dev/null 2>&1
}

for run in $(seq "$runs"); do
    echo "run $run of $runs" >&2
    fresh
    measure ls "$cli" ls --password-file pw drive/velmarin.vltx
    measure import "$cli" import --password-file pw drive/velmarin.vltx arvore
    measure import_1000 "$cli" import --password-file pw drive/mil.vltx arvore-mil
    measure restic_backup restic -r drive/restic backup -q arvore
    measure restic_restore restic -r drive/restic restore latest --target drive/restic-out -q
    measure sevenzip_a 7zz a -bd -bso0 "-p$password" -mhe=on -mx=0 drive/arvore.7z arvore
    measure sevenzip_x 7zz x -bd -bso0 "-p$password" -odrive/7z-out -y drive/arvore.7z
done

declare -A written syncs
# traced NAME COMMAND...: bytes the command wrote under drive/ and the syncs it asked for.
traced() {
    local name="$1"; shift
    strace -f --seccomp-bpf -y -qq -o trace.txt -e trace=write,pwrite64,writev,pwritev,pwritev2,copy_file_range,sendfile,splice,fsync,fdatasync,syncfs,sync,sync_file_range,msync \
        "$@" >/dev/null 2>err.txt || { echo "bulk-import: $name failed under strace" >&2; cat err.txt >&2; exit 1; }
    written[$name]=$(awk -v d="$work/drive" 'index($0, "<" d) && /(write|copy_file_range|sendfile|splice)/ && / = [0-9]+$/ { s += $NF } END { printf "%d", s }' trace.txt)
    syncs[$name]=$(grep -cE ' (fsync|fdatasync|syncfs|sync|sync_file_range|msync)\(' trace.txt || true)
}
fresh
traced import "$cli" import --password-file pw drive/velmarin.vltx arvore
checkpoints=$(grep -cE 'fsync\([0-9]+<[^>]*velmarin\.vltx\.journal>' trace.txt || true)
header_json=$((10#$(head -c 27 drive/velmarin.vltx | tail -c 20)))
traced restic_backup restic -r drive/restic backup -q arvore
repository=$(du -sb --apparent-size drive/restic | cut -f1)
traced restic_restore restic -r drive/restic restore latest --target drive/restic-out -q
traced sevenzip_a 7zz a -bd -bso0 "-p$password" -mhe=on -mx=0 drive/arvore.7z arvore
traced sevenzip_x 7zz x -bd -bso0 "-p$password" -odrive/7z-out -y drive/arvore.7z

minus() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a - b }'; }
mb() { awk -v b="$1" 'BEGIN { printf "%.1f MB", b / 1e6 }'; }
usb2() { awk -v b="$1" -v s="$2" 'BEGIN { printf "%.1f s", b / 15e6 + s * 0.02 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

unlock=${seconds[ls]}
import_s=$(minus "${seconds[import]}" "$unlock")
import_1000_s=$(minus "${seconds[import_1000]}" "$unlock")
# Each file's blocks carry a 16-byte tag; the header may be rewritten at every checkpoint.
sealed=$((data + 16 * files))
allowed=$((sealed + 8 * header_json))

fs="$(df --output=fstype "$work" | tail -n 1)"
echo "bench/bulk-import.sh --files $files --runs $runs $directory"
echo "$(date -Iseconds), $(awk -F': ' '/model name/ { print $2; exit }' /proc/cpuinfo), $(nproc) cores, $directory on $fs"
echo "$files files, $(mb "$data") in 100 folders; final header JSON $(mb "$header_json"); $checkpoints index writes under strace"
echo
echo "| Command | Time | Minus unlock | Written to the drive | Syncs | Same on USB 2 | Comparison |"
echo "|---|---:|---:|---:|---:|---:|---|"
echo "| velmarin-cli ls (unlock alone) | $unlock s | - | - | - | - | Argon2id, which restic's and 7-Zip's key derivation are not |"
echo "| velmarin-cli import, $files files | ${seconds[import]} s | $import_s s | $(mb "${written[import]}") | ${syncs[import]} | $(usb2 "${written[import]}" "${syncs[import]}") | $(ratio "$import_s" "${seconds[restic_backup]}")× restic's time, $(ratio "$import_s" "${seconds[sevenzip_a]}")× 7-Zip's; written $(ratio "${written[import]}" "$sealed")× the sealed data (at most $(mb "$allowed"): data plus 8 headers); $(ratio "${syncs[import]}" "$checkpoints") syncs an index write |"
echo "| velmarin-cli import, 1,000 files | ${seconds[import_1000]} s | $import_1000_s s | - | - | - | into an empty vault |"
echo "| restic backup | ${seconds[restic_backup]} s | - | $(mb "${written[restic_backup]}") | ${syncs[restic_backup]} | $(usb2 "${written[restic_backup]}" "${syncs[restic_backup]}") | its repository holds $(mb "$repository") (random bytes do not compress); strace may not see every write of its threads |"
echo "| 7zz a -p -mhe=on -mx=0 | ${seconds[sevenzip_a]} s | - | $(mb "${written[sevenzip_a]}") | ${syncs[sevenzip_a]} | $(usb2 "${written[sevenzip_a]}" "${syncs[sevenzip_a]}") | AES-256, names encrypted, no sync |"
echo "| restic restore | ${seconds[restic_restore]} s | - | $(mb "${written[restic_restore]}") | ${syncs[restic_restore]} | - | the same tree back |"
echo "| 7zz x -p | ${seconds[sevenzip_x]} s | - | $(mb "${written[sevenzip_x]}") | ${syncs[sevenzip_x]} | - | the same tree back |"
echo
echo "velmarin-cli exports one file per command; a tree comes back with folder export, not measured here."
