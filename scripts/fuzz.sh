#!/usr/bin/env bash
# Build the libFuzzer targets (fuzz/fuzz_*.cpp) with clang into build/fuzz and
# run each one for SECONDS seconds (default 60).
#
#   scripts/fuzz.sh [SECONDS]
#
# Seeds: small files (at most 128 KiB) from tests/data, examples and, when it is
# there, ../shared/corpus/dxf, gathered into build/fuzz/seeds. Each target
# keeps what it finds in fuzz/corpus-<target>/ (not committed), so longer runs
# build on earlier ones. A crashing input is saved as
# build/fuzz/artifacts/<target>-crash-<sha1> (or -leak-, -timeout-, -oom-).
# Exits non-zero if a target fails to build or any run finds a fault.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 1

seconds=${1:-60}
if ! [[ $seconds =~ ^[0-9]+$ ]] || [[ $seconds -eq 0 ]]; then
  echo "usage: scripts/fuzz.sh [SECONDS]   (seconds per target, default 60)" >&2
  exit 2
fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-halt_on_error=1:print_stacktrace=1:detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}

targets=()
for src in fuzz/fuzz_*.cpp; do
  [[ -e $src ]] || continue
  name=$(basename "$src" .cpp)
  targets+=("$name")
done
if [[ ${#targets[@]} -eq 0 ]]; then
  echo "fuzz: no fuzz targets (fuzz/fuzz_*.cpp); nothing to do"
  exit 0
fi
if ! command -v clang++ >/dev/null 2>&1 || ! command -v clang >/dev/null 2>&1; then
  echo "fuzz: clang and clang++ are needed (Debian packages clang, libclang-rt-14-dev)" >&2
  exit 1
fi

# Everything is built with sanitizers and coverage instrumentation, so the
# fuzzers also see and check the code of the libraries they call.
mkdir -p build/fuzz
if ! CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=Debug \
       -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
       -DCMAKE_C_FLAGS_DEBUG="-g -O1" -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
       -DCMAKE_C_FLAGS="-fsanitize=fuzzer-no-link" -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link" \
       -DZEFT_SANITIZE=ON -DZEFT_FUZZ=ON -DZEFT_TESTS=OFF >build/fuzz/configure.log 2>&1; then
  cat build/fuzz/configure.log
  echo "fuzz: cmake configure failed" >&2
  exit 1
fi
if ! cmake --build build/fuzz -j 2 --target "${targets[@]}"; then
  echo "fuzz: build failed" >&2
  exit 1
fi

# Seed corpus, named by content so that duplicates collapse.
seeds=build/fuzz/seeds
rm -rf "$seeds"
mkdir -p "$seeds" build/fuzz/artifacts build/fuzz/logs
seed_dirs=()
for d in tests/data examples ../shared/corpus/dxf; do
  [[ -d $d ]] && seed_dirs+=("$d")
done
if [[ ${#seed_dirs[@]} -gt 0 ]]; then
  find "${seed_dirs[@]}" -type f -size -131073c \
       \( -iname '*.dxf' -o -path 'tests/data/*' \) -print0 |
    while IFS= read -r -d '' f; do
      cp "$f" "$seeds/$(sha1sum "$f" | cut -c1-40)"
    done
fi
echo "fuzz: $(find "$seeds" -type f | wc -l) seed files in $seeds; ${seconds} s per target"

status=0
for name in "${targets[@]}"; do
  # Absolute paths: a target may change its working folder (fuzz_cli works in a scratch one).
  bin=$root/build/fuzz/bin/$name
  corpus=$root/fuzz/corpus-$name
  log=$root/build/fuzz/logs/$name.log
  mkdir -p "$corpus"
  args=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
        -artifact_prefix="$root/build/fuzz/artifacts/$name-")
  [[ -f fuzz/$name.dict ]] && args+=(-dict="fuzz/$name.dict")
  printf 'fuzz: %-28s ' "$name"
  "$bin" "${args[@]}" "$corpus" "$root/$seeds" >"$log" 2>&1
  rc=$?
  if [[ $rc -eq 0 ]]; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    cov=$(grep -oE 'cov: [0-9]+' "$log" | tail -n 1)
    echo "ok (${runs:-?} runs, ${cov:-cov: ?}, corpus $(find "$corpus" -type f | wc -l) files)"
  else
    echo "FAILED (exit $rc)"
    echo "---- last lines of $log"
    tail -n 60 "$log"
    echo "----"
    grep -h 'Test unit written to' "$log" || true
    status=1
  fi
done
exit $status
