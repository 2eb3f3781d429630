#!/usr/bin/env bash
# Re-layering benchmark, end to end (read, re-layer every entity, write): for
# each drawing size, ours beside the ezdxf peer on the same prepared drawing.
#
#   bench/apply.sh [SIZES...]      (default: 10000 100000 1000000 entities)
#
#   ours   build/release/bin/zeftlayer apply IN -o OUT
#   peer   ../shared/bench/peer_ezdxf.py relayer IN OUT
#
# The generated drawing (../shared/bench/gen_drawing.py, cached in
# build/bench/ under the names bench/run.sh uses) is prepared once with
# zeftlayer itself: the default standard and a project "Bâtiment A" in level
# mode with six levels "Level 0".."Level 5", the entities of input layer
# IN-<i> in level i mod 6, so that both programs give each entity the same
# layer, "Bâtiment A. Level <k>". The prepared drawings are cached as
# build/bench/apply-N.dxf. Each program runs 3 times and the best wall time
# is kept (the peer once when slower than 60 s); peak RSS is the largest of
# ours (/usr/bin/time). The smallest size's output is checked with
# 'zeftlayer check'. The table is printed and written to
# build/bench/apply-results.md.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 1

source bench/common.sh
zeftlayer=build/release/bin/zeftlayer
data=$work/data

build_release --data-dir "$data" standards

# prepared N : the generated drawing of N entities with standard and project.
prepared() {
  local src out=$work/apply-$1.dxf k i
  if [[ ! -s $out ]]; then
    src=$(drawing "$1") || exit 1
    echo "bench: preparing $out (standard, project, six levels)" >&2
    cp "$src" "$out.tmp.dxf"
    {
      "$zeftlayer" --data-dir "$data" install "$out.tmp.dxf" Beltrix &&
      "$zeftlayer" project "$out.tmp.dxf" set --building "Bâtiment A" --mode level &&
      for ((k = 0; k < 6; k++)); do
        args=()
        for ((i = k; i < 20; i += 6)); do args+=(--layer "$(printf 'IN-%02d' "$i")"); done
        "$zeftlayer" project "$out.tmp.dxf" level add "Level $k" &&
        "$zeftlayer" project "$out.tmp.dxf" level assign "Level $k" "${args[@]}" || exit 1
      done
    } >"$work/out/prepare.log" 2>&1 || {
      tail -n 20 "$work/out/prepare.log" >&2
      echo "bench: preparing $out failed" >&2
      rm -f "$out.tmp.dxf"
      exit 1
    }
    mv "$out.tmp.dxf" "$out"
  fi
  cat "$out" >/dev/null
  echo "$out"
}

rows=()
prev_n="" prev_s=""
for n in "${sizes[@]}"; do
  [[ $ours_ok -eq 1 ]] || break
  in=$(prepared "$n") || exit 1
  bytes=$(stat -c %s "$in")
  file_mb=$(awk -v b="$bytes" 'BEGIN { printf "%.1f", b / 1048576 }')
  echo "bench: $n entities, $in ($file_mb MB)" >&2
  out=$work/out/apply-out.dxf

  read -r ours_s ours_kb < <(run_timed ours "$REPEATS" 0 "$zeftlayer" --data-dir "$data" apply "$in" -o "$out")
  if [[ $n == "${sizes[0]}" && $ours_s != fail ]] &&
     ! "$zeftlayer" --data-dir "$data" check "$out" >"$work/out/check.log" 2>&1; then
    head -n 20 "$work/out/check.log" >&2
    echo "bench: ours left entities off their layer" >&2
    ours_s=wrong
  fi
  rm -f "$out"
  read -r peer_s _ < <(run_timed peer "$REPEATS" "$PEER_SLOW" "$python" "$peer" relayer "$in" "$out")
  rm -f "$out"

  rss_columns "$ours_kb" "$bytes"
  us=$(awk -v s="$ours_s" -v n="$n" 'BEGIN { if (s ~ /^[0-9.]+$/) printf "%.2f", s * 1e6 / n; else print "n/a" }')
  growth=n/a
  [[ -n $prev_n ]] && growth="$(ratio "$ours_s" "$prev_s") (×$(ratio "$n" "$prev_n") entities)"
  prev_n=$n prev_s=$ours_s
  rows+=("| $n | $file_mb | $ours_s | $peer_s | $(ratio "$peer_s" "$ours_s") | $us | $growth | $rss_mb | $rss_ratio |")
done

{
  echo "# Re-layering benchmark (zeftlayer apply)"
  echo
  echo "$(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, commit $(git rev-parse --short HEAD 2>/dev/null || echo none)."
  echo "Best of $REPEATS wall times in seconds (peer: one run when slower than ${PEER_SLOW} s); read, re-layer"
  echo "every entity, write. ours = \`zeftlayer apply IN -o OUT\`, peer = ezdxf relayer. MB = 2^20 bytes."
  echo
  echo "| entities | file MB | ours s | peer s | peer/ours (speed-up) | ours µs/entity | ours s / previous size | ours peak RSS MB | RSS / file size |"
  echo "|---:|---:|---:|---:|---:|---:|---:|---:|---:|"
  printf '%s\n' "${rows[@]}"
  [[ $ours_ok -eq 1 ]] || { echo; echo "ours is missing: $ours_note"; }
} >"$work/apply-results.md"

echo
cat "$work/apply-results.md"
echo
echo "bench: results written to $work/apply-results.md"
[[ $ours_ok -eq 1 ]]
