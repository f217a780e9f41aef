#!/usr/bin/env bash
# Builds and runs every test: all of them in the release build and under the address and undefined-behaviour sanitizers,
# the threaded ones under the thread sanitizer too, and the fuzz targets over their corpora and for a short while beyond.
# Ends with one line "N passed, N failed"; exit status 0 when none failed.
# usage: test.sh [release|asan|tsan|fuzz]...    default: all four
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 1
presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(release asan tsan fuzz)
passed=0
failed=0

# run_ctest PRESET ARGUMENT...: adds its counts
run_ctest() {
  local log="build/$1/ctest.log"
  ctest --test-dir "build/$1" --output-on-failure --no-tests=error "${@:2}" 2>&1 | tee "$log" | grep -v -E '^ +Start +[0-9]'
  local total bad
  total=$(sed -n 's/.* tests failed out of \([0-9]*\)$/\1/p' "$log")
  bad=$(sed -n 's/.* tests passed, \([0-9]*\) tests failed.*/\1/p' "$log")
  passed=$((passed + ${total:-0} - ${bad:-0}))
  failed=$((failed + ${bad:-1}))
}

scripts/setup.sh all || { echo "0 passed, 1 failed"; exit 1; }
for preset in "${presets[@]}"; do
  echo "== $preset"
  if ! cmake --preset "$preset" -DV2X_DEVELOP=ON >"build.log.$$" 2>&1 || ! cmake --build --preset "$preset" >>"build.log.$$" 2>&1; then
    tail -60 "build.log.$$"
    failed=$((failed + 1))
  elif [ "$preset" = tsan ]; then
    run_ctest "$preset" -L threads
  elif [ "$preset" = fuzz ]; then
    run_ctest "$preset" -j2 # each for itself, and by the clock
  else
    run_ctest "$preset"
  fi
  rm -f "build.log.$$"
done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
