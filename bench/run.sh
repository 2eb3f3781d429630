#!/usr/bin/env bash
# Load+save benchmark: for each drawing size, time three programs side by side
# on the same generated drawing and compare them.
#
#   bench/run.sh [SIZES...]        (default: 10000 100000 1000000 entities)
#
#   cp     copies the same bytes: the floor for reading and writing the file
#   ours   build/release/bin/zeftlayer convert IN OUT
#   peer   the ezdxf peer: ../shared/bench/peer_ezdxf.py load-save IN OUT
#
# Drawings come from ../shared/bench/gen_drawing.py and are cached in
# build/bench/ (delete them to regenerate). Each program runs 3 times and the
# best wall time is kept; the peer runs only once when its first run takes
# more than 60 s. Peak RSS is the largest seen over the runs (/usr/bin/time).
# The table is printed and written to build/bench/results.md.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 1

source bench/common.sh
zeftlayer=build/release/bin/zeftlayer

build_release convert examples/sample.dxf "$work/out/probe.dxf"

rows=()
for n in "${sizes[@]}"; do
  in=$(drawing "$n") || exit 1
  bytes=$(stat -c %s "$in")
  file_mb=$(awk -v b="$bytes" 'BEGIN { printf "%.1f", b / 1048576 }')
  echo "bench: $n entities, $in ($file_mb MB)" >&2
  out=$work/out/out.dxf

  read -r cp_s _ < <(run_timed cp "$REPEATS" 0 cp "$in" "$out")
  rm -f "$out"
  if [[ $ours_ok -eq 1 ]]; then
    read -r ours_s ours_kb < <(run_timed ours "$REPEATS" 0 "$zeftlayer" convert "$in" "$out")
  else
    ours_s=missing ours_kb=missing
  fi
  rm -f "$out"
  read -r peer_s _ < <(run_timed peer "$REPEATS" "$PEER_SLOW" "$python" "$peer" load-save "$in" "$out")
  rm -f "$out"

  rss_columns "$ours_kb" "$bytes"
  rows+=("| $n | $file_mb | $cp_s | $ours_s | $peer_s | $(ratio "$ours_s" "$cp_s") | $(ratio "$peer_s" "$ours_s") | $rss_mb | $rss_ratio |")
done

{
  echo "# Load+save benchmark"
  echo
  echo "$(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, commit $(git rev-parse --short HEAD 2>/dev/null || echo none)."
  echo "Best of $REPEATS wall times in seconds (peer: one run when slower than ${PEER_SLOW} s);"
  echo "ours = \`zeftlayer convert\`, peer = ezdxf load-save, cp = plain copy. MB = 2^20 bytes."
  echo
  echo "| entities | file MB | cp s | ours s | peer s | ours/cp | peer/ours (speed-up) | ours peak RSS MB | RSS / file size |"
  echo "|---:|---:|---:|---:|---:|---:|---:|---:|---:|"
  printf '%s\n' "${rows[@]}"
  [[ $ours_ok -eq 1 ]] || { echo; echo "ours is missing: $ours_note"; }
} >"$work/results.md"

echo
cat "$work/results.md"
echo
echo "bench: results written to $work/results.md"
[[ $ours_ok -eq 1 ]]
