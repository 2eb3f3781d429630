#!/usr/bin/env bash
# Line and branch coverage of the product code (host/, suite/,
# zeftlayermanager/, apps/) by the ctest suite: builds build/coverage (Debug,
# -O0, --coverage, no sanitizers), runs every test, and prints gcovr's
# summary, leaving out branches that only throw or cannot be reached. The
# per-file table is written to build/coverage/coverage.txt. Exits 1 when the
# build or a test fails (the figures are printed all the same).
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 1

scripts/install-deps.sh gcovr || exit 1
export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen}
dir=build/coverage
status=0

echo "coverage: building $dir" >&2
if ! { cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O0" \
         -DCMAKE_CXX_FLAGS="--coverage" -DCMAKE_EXE_LINKER_FLAGS="--coverage" \
         -DCMAKE_SHARED_LINKER_FLAGS="--coverage" -DZEFT_SANITIZE=OFF -DZEFT_TESTS=ON &&
       cmake --build "$dir" -j 2; } >"$dir.log" 2>&1; then
  tail -n 40 "$dir.log" >&2
  echo "coverage: the build failed (log: $dir.log)" >&2
  exit 1
fi

find "$dir" -name '*.gcda' -delete
echo "coverage: running the tests" >&2
if ! ctest --test-dir "$dir" -j 2 >"$dir/ctest.log" 2>&1; then
  grep -E '\(Failed\)|\(Timeout\)|tests passed' "$dir/ctest.log" >&2
  echo "coverage: some tests failed (log: $dir/ctest.log); the figures below count the rest" >&2
  status=1
fi

filters=()
for f in host suite zeftlayermanager apps; do filters+=(--filter "$root/$f/"); done
gcovr --root "$root" --object-directory "$dir" "${filters[@]}" \
  --exclude-throw-branches --exclude-unreachable-branches \
  --txt "$dir/coverage.txt" --print-summary 2>/dev/null | grep -E '^(lines|branches):'
echo "coverage: per file in $dir/coverage.txt" >&2
exit $status
