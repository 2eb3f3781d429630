#!/usr/bin/env bash
# Layer resolution benchmark: for each drawing size, the time per entity to
# put every model-space entity on the layer its rule gives, ours beside the
# ezdxf peer, on the same generated drawing. Reading the drawing and setting
# up the project are not timed.
#
#   bench/resolve.sh [SIZES...]    (default: 10000 100000 1000000 entities)
#
#   ours   build/bench-resolve/bin/resolve_bench IN (bench/resolve_bench.cpp):
#          context + processEntityLayerRules per entity, level mode, six
#          levels, checked afterwards against the peer's layer names
#   peer   bench/peer_relayer_timed.py IN: relayer() of
#          ../shared/bench/peer_ezdxf.py, "Bâtiment A" and ". "
#
# Drawings come from ../shared/bench/gen_drawing.py and are cached in
# build/bench/ under the names bench/run.sh uses, so both share them (delete
# them to regenerate). Ours runs 3 times and the best timed loop is kept; the
# peer too, but only once when its first run takes more than 60 s of wall
# time. Peak RSS is the largest ours reported. The table is printed and
# written to build/bench/resolve-results.md.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 1

source bench/common.sh
peer_timed=bench/peer_relayer_timed.py
builddir=build/bench-resolve
ours=$builddir/bin/resolve_bench

echo "bench: building $ours" >&2
mkdir -p "$work/out"
build_log=$work/resolve-build.log
ours_ok=1
ours_note=""
if ! { cmake -S . -B "$builddir" -DCMAKE_BUILD_TYPE=Release -DZEFT_TESTS=OFF -DZEFT_BENCH=ON &&
       cmake --build "$builddir" -j 2 --target resolve_bench; } >"$build_log" 2>&1; then
  tail -n 40 "$build_log" >&2
  echo "bench: the build failed (log: $build_log); 'ours' will be reported as missing" >&2
fi
if [[ ! -x $ours ]]; then
  ours_ok=0
  ours_note="$ours was not built"
  echo "bench: ours is missing: $ours_note" >&2
fi

# field FILE KEY : the value of a "key: value" line.
field() { awk -v k="$2:" '$1 == k { print $2; exit }' "$1"; }

# run_timed LABEL REPEATS SLOW CMD... : prints "BEST_NS BEST_SECONDS PEAK_KB"
# from the program's own report (the timed part only), or "fail fail fail"
# if any run fails. SLOW > 0 stops repeating after a run whose wall time is
# above SLOW seconds.
run_timed() {
  local label=$1 reps=$2 slow=$3
  shift 3
  local best_ns="" best_s="" peak=0 i start end wall ns s kb log=$work/out/$label.log
  for ((i = 1; i <= reps; i++)); do
    start=$(date +%s%N)
    if ! "$@" >"$log" 2>&1; then
      echo "bench: $label failed (run $i): $*" >&2
      tail -n 20 "$log" >&2
      echo "fail fail fail"
      return
    fi
    end=$(date +%s%N)
    wall=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", (b - a) / 1e9 }')
    ns=$(field "$log" ns_per_entity) s=$(field "$log" seconds) kb=$(field "$log" peak_rss_kb)
    if [[ -z $best_ns ]] || awk -v a="$ns" -v b="$best_ns" 'BEGIN { exit !(a < b) }'; then
      best_ns=$ns best_s=$s
    fi
    [[ -n $kb ]] && ((kb > peak)) && peak=$kb
    echo "bench:   $label run $i: ${ns} ns/entity (${s} s timed, ${wall} s wall)" >&2
    if ((slow > 0)) && awk -v w="$wall" -v l="$slow" 'BEGIN { exit !(w > l) }'; then
      break
    fi
  done
  echo "$best_ns $best_s $peak"
}

secs() {  # secs S -> S with three decimals, or S as it is when not a number
  awk -v s="$1" 'BEGIN { if (s ~ /^[0-9.]+$/) printf "%.3f", s; else print s }'
}

rows=()
declare -A ours_secs
prev_n="" prev_s=""
for n in "${sizes[@]}"; do
  in=$(drawing "$n") || exit 1
  echo "bench: $n entities, $in" >&2

  if [[ $ours_ok -eq 1 ]]; then
    read -r ours_ns ours_s ours_kb < <(run_timed ours "$REPEATS" 0 "$ours" "$in")
  else
    ours_ns=missing ours_s=missing ours_kb=missing
  fi
  read -r peer_ns peer_s _ < <(run_timed peer "$REPEATS" "$PEER_SLOW" "$python" "$peer_timed" "$in")

  if [[ $ours_kb =~ ^[0-9]+$ ]]; then
    rss_mb=$(awk -v k="$ours_kb" 'BEGIN { printf "%.1f", k / 1024 }')
  else
    rss_mb=$ours_kb
  fi
  growth=n/a
  [[ -n $prev_n ]] && growth="$(ratio "$ours_s" "$prev_s") (×$(ratio "$n" "$prev_n") entities)"
  ours_secs[$n]=$ours_s
  prev_n=$n prev_s=$ours_s
  rows+=("| $n | $ours_ns | $peer_ns | $(ratio "$peer_ns" "$ours_ns") | $(secs "$ours_s") | $(secs "$peer_s") | $growth | $rss_mb |")
done

scaling=""
if [[ -n ${ours_secs[1000000]:-} && -n ${ours_secs[100000]:-} ]]; then
  scaling="Ours 1M/100k time ratio: $(ratio "${ours_secs[1000000]}" "${ours_secs[100000]}") (10.00 = linear)."
fi

{
  echo "# Layer resolution benchmark"
  echo
  echo "$(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, commit $(git rev-parse --short HEAD 2>/dev/null || echo none)."
  echo "Timed part only (reading and setup excluded), best of $REPEATS runs (peer: one run when slower than ${PEER_SLOW} s);"
  echo "ours = context + processEntityLayerRules per model-space entity, peer = ezdxf relayer()."
  echo "Both give \"Bâtiment A. Level <k>\"; ours checks every entity against that name."
  echo
  echo "| entities | ours ns/entity | peer ns/entity | peer/ours (speed-up) | ours s | peer s | ours s / previous size | ours peak RSS MB |"
  echo "|---:|---:|---:|---:|---:|---:|---:|---:|"
  printf '%s\n' "${rows[@]}"
  [[ -z $scaling ]] || { echo; echo "$scaling"; }
  [[ $ours_ok -eq 1 ]] || { echo; echo "ours is missing: $ours_note"; }
} >"$work/resolve-results.md"

echo
cat "$work/resolve-results.md"
echo
echo "bench: results written to $work/resolve-results.md"
[[ $ours_ok -eq 1 ]]
