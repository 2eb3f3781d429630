#!/usr/bin/env bash
# The pictures of docs/images: the desktop window on the prepared sample and
# the four pages of the layer standard editor, at 100% and at 200%, drawn
# offscreen from a build folder (default build/test; build it first).
#   scripts/screenshots.sh [BUILD_DIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build/test}" && pwd)
out=$root/docs/images
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
export QT_QPA_PLATFORM=offscreen ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0}

"$root/examples/prepare_sample.sh" "$build/bin/zeftlayer" "$work/data" "$work/plan.dxf" >/dev/null
for scale in 1 2; do
  suffix=$([[ $scale == 1 ]] && echo "" || echo "@${scale}x")
  QT_SCALE_FACTOR=$scale "$build/bin/zeftcad" "$work/plan.dxf" --data-dir "$work/data" \
    --screenshot "$out/zeftcad-window$suffix.png"
  mkdir -p "$work/pages"
  QT_SCALE_FACTOR=$scale ZEFT_SCREENSHOTS="$work/pages" "$build/bin/test_editor_sheet" \
    opensOnTheDrawingsStandardInTabOrder >/dev/null
  for page in "$work"/pages/*.png; do
    mv "$page" "$out/$(basename "$page" .png)$suffix.png"
  done
done
ls "$out"
