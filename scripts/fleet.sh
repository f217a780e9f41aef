#!/usr/bin/env bash
# Runs many units with their devices, stack and cloud on this machine, and Prometheus that watches all of them. Each unit has
# a network namespace of its own. Injects faults into some units by chance. Prints which alerts fired after how long, what
# was lost, and what a unit costs.
# usage: fleet.sh [--units N] [--minutes M] [--faulty SHARE] [--seed S]
#   --units N         number of units, 1 to 1000 (default 10)
#   --minutes M       time that the fleet runs (default 10); faults need 5 minutes
#   --faulty SHARE    share of the units that get a fault (default 0.6)
#   --seed S          repeats the choices of the run that printed this seed
# Exit status: 1 if an alert is missing or false, or if a unit without a fault lost something.
# It needs root, or the right to create user namespaces. A process namespace ends everything that it started.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" all
build=$root/build/release
[ -f "$build/build.ninja" ] || (cd "$root" && cmake --preset release -DV2X_DEVELOP=OFF >/dev/null)
echo "fleet: building"
cmake --build "$build" --target v2x_spat_convert v2x_spat_sim v2x_spat_ctl >"$build/fleet.log" 2>&1 || { cat "$build/fleet.log"; exit 1; }

namespaces=(--net --mount --pid --fork --kill-child --mount-proc)
[ "$(id -u)" -eq 0 ] || namespaces+=(--map-root-user)
exec unshare "${namespaces[@]}" python3 "$root/scripts/fleet/fleet.py" "$root" "$build/bin" "$@"
