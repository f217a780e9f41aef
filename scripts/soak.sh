#!/usr/bin/env bash
# Builds and runs v2x_spat_soak: the real daemon under load and faults, watched from outside. Ends with its table; exit status 0
# when every line passed, 1 when one failed, 3 when something could not be looked at (with --allow-missing: 0). The DDS domain of
# the machine should be nobody else's meanwhile.
# usage: soak.sh [--preset release|asan|tsan] [PLAN]... [--minutes N] [--scale X] [--times N] [--malformed N] [--seed N]
#   [--allow-missing]
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
# As ctest sets them, and for the reasons given where it does.
export ASAN_OPTIONS=${ASAN_OPTIONS:-new_delete_type_mismatch=0}
export TSAN_OPTIONS=${TSAN_OPTIONS:-suppressions=$root/tests/tsan.supp}
exec "build/$preset/bin/v2x_spat_soak" "$@"
