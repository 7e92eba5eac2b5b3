#!/usr/bin/env bash
# Whole-process figures: velmarin-cli's import, export, verify and compact of one large file of random
# bytes, each minus the unlock (velmarin-cli ls) of the same run, beside age, restic and 7-Zip on the
# same file, with each command's peak memory and the single-thread bound of the same run.
# Usage: bench/whole-process.sh [--size-mib N] [--runs N] [directory]
# Needs velmarin-cli and velmarin-bench in BUILD_DIR (default build/; scripts/bench.sh builds them)
# and age, restic, 7zz, openssl and /usr/bin/time (scripts/install-deps.sh --bench installs them).
# Every figure is the best of the runs; the directory needs about four times the file's size.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${BUILD_DIR:-$root/build}" && pwd)"
cli="$build/cli/velmarin-cli"
helper="$build/bench/velmarin-bench"
size_mib=1024
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
for tool in "$cli" "$helper"; do
    [[ -x "$tool" ]] || { echo "whole-process: $tool is missing; build it first" >&2; exit 1; }
done
for tool in age age-keygen restic 7zz openssl /usr/bin/time; do
    command -v "$tool" >/dev/null || { echo "whole-process: $tool is missing (scripts/install-deps.sh --bench)" >&2; exit 1; }
done

work="$(mktemp -d "$(cd "$directory" && pwd)/velmarin-whole-XXXXXX")"
trap 'rm -rf "$work"' EXIT
cd "$work"
# Compaction builds its copy in the temporary folder: the same disk as everything else.
export TMPDIR="$work"
export QT_QPA_PLATFORM=offscreen
password='senha de medição 2026'
printf '%s' "$password" > pw
export RESTIC_PASSWORD_FILE="$work/pw"
bytes=$((size_mib * 1024 * 1024))
head -c "$bytes" /dev/urandom > source.bin
age-keygen -o age-key.txt 2>/dev/null
recipient="$(age-keygen -y age-key.txt)"
mkdir empty fallback v
"$cli" create --new-password-file pw empty >/dev/null 2>&1
# Memory is measured on a vault whose key comes from the fallback, so Argon2id's 256 MiB is not the peak.
VELMARIN_PASSWORD="$password" "$helper" --fallback-vault fallback/velmarin.vltx >/dev/null 2>&1
sync

declare -A seconds rss
# measure NAME COMMAND...: keeps the shortest time and the largest peak RSS (KiB) of NAME over the runs.
measure() {
    local name="$1"; shift
    local start end
    # Each command starts with nothing left to write back from the one before.
    sync
    start=$(date +%s%N)
    if ! /usr/bin/time -f %M -o rss.txt "$@" >/dev/null 2>err.txt; then
        echo "whole-process: $name failed: $*" >&2; cat err.txt >&2; exit 1
    fi
    end=$(date +%s%N)
    local elapsed
    elapsed=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", (b - a) / 1e9 }')
    local kib
    kib=$(tail -n 1 rss.txt)
    if [[ -z "${seconds[$name]:-}" ]] || awk -v x="$elapsed" -v y="${seconds[$name]}" 'BEGIN { exit !(x < y) }'; then
        seconds[$name]=$elapsed
    fi
    if [[ -z "${rss[$name]:-}" || "$kib" -gt "${rss[$name]}" ]]; then
        rss[$name]=$kib
    fi
}
# openssl speed in bytes a second over 256 KiB pieces, the best of the runs.
declare -A speed
openssl_speed() {
    local rate
    rate=$(openssl speed -mr -evp "$2" -bytes 262144 -seconds 2 2>/dev/null | awk -F: '/^\+F:/ { print $4 }')
    if [[ -z "${speed[$1]:-}" ]] || awk -v x="$rate" -v y="${speed[$1]}" 'BEGIN { exit !(x > y) }'; then
        speed[$1]=$rate
    fi
}

vault=v/velmarin.vltx
for run in $(seq "$runs"); do
    echo "run $run of $runs" >&2
    # The stages alone, as the import and the export run them; both sync their output at the end.
    measure cat cat source.bin
    # The container is read from the drive: Velmarin's own reads and writes leave the cache.
    dd if=source.bin iflag=nocache count=0 status=none
    measure cat_drive cat source.bin
    measure dd dd if=/dev/zero of=dd.bin bs=16M count=$((size_mib / 16)) conv=fsync status=none
    rm -f dd.bin
    # Straight to the drive: a bound that the page cache's own moods do not move.
    measure dd_direct dd if=/dev/zero of=dd.bin bs=16M count=$((size_mib / 16)) oflag=direct conv=fsync status=none
    rm -f dd.bin
    openssl_speed sha sha256
    openssl_speed aead chacha20-poly1305
    measure argon2 "$helper" --argon2id-runs 1

    cp empty/velmarin.vltx "$vault"
    measure ls "$cli" ls --password-file pw "$vault"
    measure import "$cli" import --password-file pw "$vault" source.bin
    measure export "$cli" export --password-file pw "$vault" source.bin exported.bin
    if [[ $run -eq 1 ]] && ! cmp -s source.bin exported.bin; then
        echo "whole-process: the exported file differs from the imported one" >&2; exit 1
    fi
    rm -f exported.bin
    measure verify "$cli" verify --password-file pw "$vault"
    # Dead data for compaction to drop.
    head -c $((16 * 1024 * 1024)) /dev/urandom > discarded.bin
    "$cli" import --password-file pw "$vault" discarded.bin >/dev/null 2>&1
    "$cli" rm --password-file pw "$vault" discarded.bin >/dev/null 2>&1
    measure compact "$cli" compact --password-file pw "$vault"
    rm -f "$vault" discarded.bin

    measure age_encrypt age -r "$recipient" -o source.age source.bin
    measure age_decrypt age -d -i age-key.txt -o age-out.bin source.age
    rm -f source.age age-out.bin

    restic init --repo restic-repo -q >/dev/null 2>&1
    measure restic_backup restic -r restic-repo backup -q source.bin
    measure restic_restore restic -r restic-repo restore latest --target restic-out -q
    rm -rf restic-repo restic-out

    measure sevenzip_a 7zz a -bd -bso0 "-p$password" -mx=0 archive.7z source.bin
    measure sevenzip_x 7zz x -bd -bso0 "-p$password" -o7z-out -y archive.7z
    rm -rf archive.7z 7z-out

    cp fallback/velmarin.vltx "$vault"
    measure fallback_ls "$cli" ls --password-file pw "$vault"
    measure fallback_import "$cli" import --password-file pw "$vault" source.bin
    measure fallback_export "$cli" export --password-file pw "$vault" source.bin exported.bin
    rm -f exported.bin "$vault"
done

# Rates in decimal MB/s, as the other table.
rate() { awk -v b="$bytes" -v s="$1" 'BEGIN { if (s <= 0) print "-"; else printf "%.0f MB/s", b / s / 1e6 }'; }
minus() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a - b }'; }
mb() { awk -v k="$1" 'BEGIN { printf "%.1f MB", k * 1024 / 1e6 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
percent() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.0f %%", 100 * a / b }'; }

unlock=${seconds[ls]}
sha_s=$(awk -v b="$bytes" -v r="${speed[sha]}" 'BEGIN { printf "%.3f", b / r }')
aead_s=$(awk -v b="$bytes" -v r="${speed[aead]}" 'BEGIN { printf "%.3f", b / r }')
write_s=$(awk -v a="${seconds[dd]}" -v b="${seconds[dd_direct]}" 'BEGIN { printf "%.3f", (a < b ? a : b) }')
import_bound=$(awk -v a="${seconds[cat]}" -v b="$sha_s" -v c="$aead_s" -v d="$write_s" 'BEGIN { printf "%.3f", a + b + c + d }')
export_bound=$(awk -v a="${seconds[cat_drive]}" -v c="$aead_s" -v d="$write_s" 'BEGIN { printf "%.3f", a + c + d }')
# Compaction reads the container and writes the local copy, then reads that and writes it back.
compact_bound=$(awk -v a="${seconds[cat_drive]}" -v c="$aead_s" -v d="$write_s" 'BEGIN { printf "%.3f", 2 * a + c + 2 * d }')
import_s=$(minus "${seconds[import]}" "$unlock")
export_s=$(minus "${seconds[export]}" "$unlock")
verify_s=$(minus "${seconds[verify]}" "$unlock")
compact_s=$(minus "${seconds[compact]}" "$unlock")

fs="$(df --output=fstype "$work" | tail -n 1)"
echo "bench/whole-process.sh --size-mib $size_mib --runs $runs $directory"
echo "$(date -Iseconds), $(awk -F': ' '/model name/ { print $2; exit }' /proc/cpuinfo), $(nproc) cores, $directory on $fs"
echo
echo "| Command ($size_mib MiB file) | Time | Minus unlock | Rate | Peak RSS | Bound or comparison |"
echo "|---|---:|---:|---:|---:|---|"
row() { echo "| $1 | $2 s | $3 | $4 | $(mb "$5") | $6 |"; }
row "velmarin-cli ls (unlock alone)" "$unlock" "-" "-" "${rss[ls]}" \
    "Argon2id alone ${seconds[argon2]} s (in-process); unlock is $(percent "$unlock" "${seconds[argon2]}") of it"
row "velmarin-cli import" "${seconds[import]}" "$import_s s" "$(rate "$import_s")" "${rss[import]}" \
    "$(percent "$import_bound" "$import_s") of the single-thread bound $(rate "$import_bound") (cat $(rate "${seconds[cat]}"), SHA-256 $(rate "$sha_s"), ChaCha20-Poly1305 $(rate "$aead_s"), dd with fsync $(rate "${seconds[dd]}"), direct $(rate "${seconds[dd_direct]}")); $(ratio "${seconds[age_encrypt]}" "$import_s")× age encrypt"
row "velmarin-cli export" "${seconds[export]}" "$export_s s" "$(rate "$export_s")" "${rss[export]}" \
    "$(percent "$export_bound" "$export_s") of the bound without the hash $(rate "$export_bound") (cat from the drive $(rate "${seconds[cat_drive]}")); $(ratio "${seconds[age_decrypt]}" "$export_s")× age -d"
row "velmarin-cli verify" "${seconds[verify]}" "$verify_s s" "$(rate "$verify_s")" "${rss[verify]}" \
    "reads, opens and hashes every block; writes nothing"
row "velmarin-cli compact" "${seconds[compact]}" "$compact_s s" "$(rate "$compact_s")" "${rss[compact]}" \
    "$(percent "$compact_bound" "$compact_s") of its bound $(rate "$compact_bound"): checks every tag on the way to the local copy, syncs it, copies it back and syncs again"
row "age -r (encrypt, key file)" "${seconds[age_encrypt]}" "-" "$(rate "${seconds[age_encrypt]}")" "${rss[age_encrypt]}" "no sync"
row "age -d" "${seconds[age_decrypt]}" "-" "$(rate "${seconds[age_decrypt]}")" "${rss[age_decrypt]}" "no sync"
row "restic backup (new repository)" "${seconds[restic_backup]}" "-" "$(rate "${seconds[restic_backup]}")" "${rss[restic_backup]}" "includes its own key derivation"
row "restic restore" "${seconds[restic_restore]}" "-" "$(rate "${seconds[restic_restore]}")" "${rss[restic_restore]}" "includes its own key derivation"
row "7zz a -p -mx=0" "${seconds[sevenzip_a]}" "-" "$(rate "${seconds[sevenzip_a]}")" "${rss[sevenzip_a]}" "AES-256, no compression"
row "7zz x -p" "${seconds[sevenzip_x]}" "-" "$(rate "${seconds[sevenzip_x]}")" "${rss[sevenzip_x]}" "AES-256"
row "velmarin-cli ls, fallback-key vault" "${seconds[fallback_ls]}" "-" "-" "${rss[fallback_ls]}" \
    "PBKDF2, 250,000 iterations: no Argon2id memory"
row "velmarin-cli import, fallback-key vault" "${seconds[fallback_import]}" "-" "-" "${rss[fallback_import]}" \
    "$(mb $((rss[fallback_import] - rss[fallback_ls]))) above its ls"
row "velmarin-cli export, fallback-key vault" "${seconds[fallback_export]}" "-" "-" "${rss[fallback_export]}" \
    "$(mb $((rss[fallback_export] - rss[fallback_ls]))) above its ls"
