#!/usr/bin/env bash
# Do not run other programs on this machine during the run.
#
# Builds the benchmarks and runs them one after another. Most benchmarks measure a baseline in the same run and print both
# figures. The exit status is 1 if a benchmark fails.
# usage: bench.sh
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 1
scripts/setup.sh all || exit 1
benches=(bench_loopback bench_flood bench_convert bench_sources bench_codec bench_reply bench_msg bench_dds bench_daemon)
cmake --preset release -DV2X_DEVELOP=ON >/dev/null || exit 1
cmake --build --preset release --target "${benches[@]}" >build/release/bench.log 2>&1 || { tail -40 build/release/bench.log; exit 1; }

echo "$(date -u +%F)  $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1), $(nproc) processors, load $(cut -d' ' -f1 /proc/loadavg)"
failed=0
for bench in "${benches[@]}"; do
  echo "== $bench"
  "build/release/bin/$bench" || failed=1
done
exit "$failed"
