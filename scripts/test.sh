#!/usr/bin/env bash
# Checks the format of all sources, then builds and runs the tests of each preset.
# usage: test.sh [release|asan|tsan|package]...    default: all four
#   release    all tests but the unit tests of single modules of the daemon and the tools
#   asan       all tests, with the address and undefined-behaviour sanitizers; then each fuzz target replays its corpus and
#              fuzzes for 20 s
#   tsan       the tests of code with threads, with the thread sanitizer
#   package    the Debian packages on a clean machine (test_package.sh); needs root
# A unit test program counts as one test. Each scenario case, DDS case and package check counts as one test. The last
# line is "N passed, N failed". The exit status is 0 if no test fails.
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 1
presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(release asan tsan package)
passed=0
failed=0
skipped=0
cases=0

# select_tests PRESET: sets targets, what to build, and tests, what to run
select_tests() {
  targets=()
  tests=(-LE fuzz)
  [ "$1" = release ] && tests=(-LE module) && targets=(--target v2x_release_tests)
  [ "$1" = tsan ] && tests=(-L threads -j4) && targets=(--target v2x_thread_tests)
}

# build PRESET: configures and builds the preset; prints the end of the log if that fails
build() {
  local log=build/$1.log status=0
  mkdir -p build
  select_tests "$1"
  # The packages take the objects of release from ccache. Nothing else here takes those of the other presets.
  [ "$1" = release ] || export CCACHE_READONLY=1
  { cmake --preset "$1" -DV2X_DEVELOP=ON && nice cmake --build --preset "$1" "${targets[@]}"; } >"$log" 2>&1 ||
    { tail -60 "$log"; status=1; }
  rm -f "$log"
  return $status
}

# start_build PRESET: builds the preset in the background. Does nothing for "package" or an empty name
start_build() {
  [ -z "$1" ] || [ "$1" = package ] || build "$1" &
}

# run_ctest PRESET [CTEST ARGUMENT]...: runs the tests and adds their results to the counters above
run_ctest() {
  local folder="build/$1" total bad not_run
  ctest --test-dir "$folder" -j8 --output-on-failure --no-tests=error "${@:2}" 2>&1 | tee "$folder/ctest.log" |
    grep -v -E '^ +Start +[0-9]'
  total=$(sed -n 's/.* tests failed out of \([0-9]*\)$/\1/p' "$folder/ctest.log")
  bad=$(sed -n 's/.* tests passed, \([0-9]*\) tests failed.*/\1/p' "$folder/ctest.log")
  not_run=$(grep -c '\*\*\*Skipped' "$folder/ctest.log")
  passed=$((passed + ${total:-0} - ${bad:-0} - not_run)) # ctest counts skipped tests as passed
  skipped=$((skipped + not_run))
  failed=$((failed + ${bad:-1}))
  cases=$((cases + $(grep -c '^\[       OK \]' "$folder/Testing/Temporary/LastTest.log")))
}

# Tests the packages and adds the results to the counters above. All packages count as one skipped test if this machine
# cannot test them.
run_package_test() {
  local log=build/package_test.log status count good bad not_run
  mkdir -p build
  scripts/test_package.sh 2>&1 | tee "$log"
  status=${PIPESTATUS[0]}
  if [ "$status" -eq 77 ]; then
    skipped=$((skipped + 1))
    return
  fi
  count=$(sed -n '$s/^\([0-9]*\) passed, \([0-9]*\) failed, \([0-9]*\) not tested$/\1 \2 \3/p' "$log")
  read -r good bad not_run <<<"${count:-0 1 0}" # the last line is missing if the packages do not build
  passed=$((passed + good))
  failed=$((failed + (status != 0 && bad == 0 ? 1 : bad)))
  skipped=$((skipped + not_run))
}

scripts/setup.sh all || { echo "0 passed, 1 failed"; exit 1; }
echo "== format"
if find src tools examples tests bench fuzz \( -name '*.cpp' -o -name '*.h' -o -name '*.c' \) -print0 |
  xargs -0 clang-format --dry-run --Werror; then
  passed=$((passed + 1))
else
  failed=$((failed + 1))
fi
start_build "${presets[0]}"
for i in "${!presets[@]}"; do
  preset=${presets[i]}
  echo "== $preset"
  wait $!
  built=$?
  start_build "${presets[i + 1]:-}" # most tests wait most of the time
  if [ "$preset" = package ]; then
    run_package_test
  elif [ "$built" -eq 0 ]; then
    select_tests "$preset"
    run_ctest "$preset" "${tests[@]}"
    [ "$preset" = asan ] && run_ctest asan -L fuzz -j7 # no fuzz target measures time
  else
    failed=$((failed + 1))
  fi
done
echo "== $cases GoogleTest cases passed, $skipped tests skipped"
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
