#!/usr/bin/env bash
# Do not run other programs in DDS domain 200 on this machine during the run.
#
# Builds and runs v2x_spat_soak. It puts the real daemon under load and faults, and checks it from another process. Prints one
# line for each check. The last line gives the totals. The exit status is 1 if a check fails.
# usage: soak.sh [--preset release|asan|tsan] [PLAN]... [--minutes N] [--scale X] [--times N] [--malformed N] [--seed N]
#   --minutes N      the length of the steady plan, in minutes
#   --scale X        the steady plan multiplies the nominal rate of every input by X
#   --times N        the peers plan repeats each fault N times
#   --malformed N    the flood plan sends N malformed inputs to each interface
#   --seed N         the seed of random input
# examples:
#   soak.sh --minutes 60    the default plan (steady): every input at ten times its nominal rate, for one hour
#   soak.sh all             every plan, with one minute of the steady plan
#   soak.sh --help          lists the plans
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
# The same sanitizer options as under ctest; tests/CMakeLists.txt explains them.
export ASAN_OPTIONS=${ASAN_OPTIONS:-new_delete_type_mismatch=0}
export TSAN_OPTIONS=${TSAN_OPTIONS:-suppressions=$root/tests/tsan.supp}
TMPDIR=$(mktemp -d)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
"build/$preset/bin/v2x_spat_soak" "$@"
