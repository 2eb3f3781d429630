# What the benchmark scripts share: the sizes given on the command line, the
# shared generator and peer, the cache of generated drawings, ratios.
# Sourced by bench/run.sh and bench/resolve.sh from the repository's root.

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
