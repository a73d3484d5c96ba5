#!/usr/bin/env bash
# Renders the icon set in data/icons from its two drawings; run by hand when a drawing changes and
# commit the pictures. The 16 px one is drawn on its own grid and kept to 16 colours.
# Needs rsvg-convert (librsvg2-bin) and ImageMagick's convert.
set -euo pipefail
cd "$(dirname "$0")/../data/icons"
for size in 32 48 256; do
    rsvg-convert -w "$size" -h "$size" marquill.svg -o "marquill-$size.png"
done
small=$(mktemp --suffix=.png)
rsvg-convert -w 16 -h 16 marquill-16.svg -o "$small"
convert "$small" -colors 16 -strip PNG32:marquill-16.png
rm -f "$small"
