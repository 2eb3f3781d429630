# What the benchmark scripts share: the sizes given on the command line, the
# shared generator and peer, the cache of generated drawings, ratios.
# Sourced by bench/run.sh, bench/resolve.sh and bench/apply.sh from the
# repository's root.

sizes=("$@")
[[ ${#sizes[@]} -gt 0 ]] || sizes=(10000 100000 1000000)
for n in "${sizes[@]}"; do
  if ! [[ $n =~ ^[1-9][0-9]*$ ]]; then
    echo "usage: $0 [SIZES...]   (entity counts, default 10000 100000 1000000)" >&2
    exit 2
  fi
done

REPEATS=3
PEER_SLOW=60          # seconds: a slower first peer run is not repeated
python=/usr/bin/python3
shared=$root/../shared/bench
gen=$shared/gen_drawing.py
peer=$shared/peer_ezdxf.py
work=build/bench

for f in "$gen" "$peer"; do
  if [[ ! -f $f ]]; then
    echo "bench: $f not found (the shared folder must sit beside the repository)" >&2
    exit 1
  fi
done

scripts/install-deps.sh || exit 1
mkdir -p "$work/out"

ratio() {  # ratio A B -> A/B with two decimals, or n/a
  awk -v a="$1" -v b="$2" 'BEGIN {
    if (a !~ /^[0-9.]+$/ || b !~ /^[0-9.]+$/ || b + 0 == 0) print "n/a";
    else printf "%.2f", a / b }'
}

# rss_columns PEAK_KB FILE_BYTES : sets rss_mb and rss_ratio (peak RSS over
# the file's size) for the table, or passes a failure through.
rss_columns() {
  if [[ $1 =~ ^[0-9]+$ ]]; then
    rss_mb=$(awk -v k="$1" 'BEGIN { printf "%.1f", k / 1024 }')
    rss_ratio=$(awk -v k="$1" -v b="$2" 'BEGIN { printf "%.2f", k * 1024 / b }')
  else
    rss_mb=$1 rss_ratio=n/a
  fi
}

# drawing N : the cached generated drawing of N entities, made when missing,
# read once so that every program starts with it in the page cache.
drawing() {
  local in=$work/drawing-$1.dxf
  if [[ ! -s $in ]]; then
    echo "bench: generating $in ($1 entities)" >&2
    if ! "$python" "$gen" "$1" "$in.tmp" --seed 1; then
      echo "bench: generating $in failed" >&2
      rm -f "$in.tmp"
      exit 1
    fi
    mv "$in.tmp" "$in"
  fi
  cat "$in" >/dev/null
  echo "$in"
}

# run_timed LABEL REPEATS SLOW CMD... : prints "BEST_SECONDS PEAK_KB", or
# "fail fail" if any run fails. SLOW > 0 stops repeating after a run slower
# than SLOW seconds.
run_timed() {
  local label=$1 reps=$2 slow=$3
  shift 3
  local best="" peak=0 i start end secs kb tfile
  tfile=$(mktemp)
  for ((i = 1; i <= reps; i++)); do
    start=$(date +%s%N)
    if ! /usr/bin/time -f '%e %M' -o "$tfile" "$@" >"$work/out/$label.log" 2>&1; then
      echo "bench: $label failed (run $i): $*" >&2
      tail -n 20 "$work/out/$label.log" >&2
      rm -f "$tfile"
      echo "fail fail"
      return
    fi
    end=$(date +%s%N)
    secs=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", (b - a) / 1e9 }')
    kb=$(awk 'END { print $2 }' "$tfile")
    if [[ -z $best ]] || awk -v s="$secs" -v b="$best" 'BEGIN { exit !(s < b) }'; then
      best=$secs
    fi
    ((kb > peak)) && peak=$kb
    echo "bench:   $label run $i: ${secs} s, peak RSS $((kb / 1024)) MB" >&2
    if ((slow > 0)) && awk -v s="$secs" -v l="$slow" 'BEGIN { exit !(s > l) }'; then
      break
    fi
  done
  rm -f "$tfile"
  echo "$best $peak"
}

# build_release PROBE_ARGS... : builds build/release and runs zeftlayer once
# with PROBE_ARGS; sets ours_ok (1 or 0) and ours_note (why it is missing).
build_release() {
  echo "bench: building the release build" >&2
  local build_log=$work/release-build.log probe_log=$work/out/probe.log
  if ! { cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DZEFT_TESTS=OFF &&
         cmake --build build/release -j 2; } >"$build_log" 2>&1; then
    tail -n 40 "$build_log" >&2
    echo "bench: the release build failed (log: $build_log); 'ours' will be reported as missing" >&2
  fi
  ours_ok=1
  ours_note=""
  if [[ ! -x $zeftlayer ]]; then
    ours_ok=0
    ours_note="$zeftlayer was not built"
  elif ! "$zeftlayer" "$@" >"$probe_log" 2>&1; then
    ours_ok=0
    ours_note="'$zeftlayer $*' failed: $(head -c 300 "$probe_log")"
  fi
  [[ $ours_ok -eq 1 ]] || echo "bench: ours is missing: $ours_note" >&2
}
