#!/usr/bin/env bash
# Renders resources/icons/Velmarin.svg into the multi-size Windows icon the program embeds
# (resources/icons/Velmarin.ico) and the PNG the Linux desktop entry installs.
# Needs rsvg-convert (librsvg2-bin) and ImageMagick (imagemagick); run it after editing the SVG.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
source_svg="$root/resources/icons/Velmarin.svg"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for tool in rsvg-convert convert; do
    if ! command -v "$tool" >/dev/null 2>&1; then
        echo "Falta $tool: instale librsvg2-bin e imagemagick." >&2
        exit 1
    fi
done

sizes=(16 24 32 48 64 128 256)
pngs=()
for size in "${sizes[@]}"; do
    rsvg-convert -w "$size" -h "$size" "$source_svg" -o "$work/$size.png"
    pngs+=("$work/$size.png")
done

convert "${pngs[@]}" "$root/resources/icons/Velmarin.ico"
cp "$work/256.png" "$root/resources/icons/velmarin.png"
echo "Gerados: resources/icons/Velmarin.ico (${sizes[*]} px) e resources/icons/velmarin.png"
