#!/usr/bin/env bash
# Builds and runs v2x_spat_soak: the real daemon under load and faults, watched from outside. Prints one line for each check and
# a last line with the counts; exit status 1 when a check failed. No other program should use the machine's DDS domain meanwhile.
# usage: soak.sh [--preset release|asan|tsan] [PLAN]... [--minutes N] [--scale X] [--times N] [--malformed N] [--seed N]
#   soak.sh --minutes 60    all paths at ten times their nominal rates for an hour
#   soak.sh all             every plan, one minute of load
#   soak.sh --help          the plans
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
preset=release
if [ "${1:-}" = --preset ]; then
  preset=${2:?"soak.sh: --preset takes release, asan or tsan"}
  shift 2
fi
scripts/setup.sh all
cmake --preset "$preset" -DV2X_DEVELOP=ON >/dev/null
cmake --build --preset "$preset" --target v2x_spat_soak >"build/$preset/soak.log" 2>&1 || { tail -40 "build/$preset/soak.log"; exit 1; }
# As ctest sets them; tests/CMakeLists.txt has the reasons.
export ASAN_OPTIONS=${ASAN_OPTIONS:-new_delete_type_mismatch=0}
export TSAN_OPTIONS=${TSAN_OPTIONS:-suppressions=$root/tests/tsan.supp}
TMPDIR=$(mktemp -d)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
"build/$preset/bin/v2x_spat_soak" "$@"
