#!/usr/bin/env bash
# Shows the main job: the lights that a signal learner and a GA/T 1743 controller report arrive at the stack application
# as SPAT records. Runs the daemon between simulators in a temporary work directory, prints the live records and ends with
# a summary.
# usage: demo.sh [--seconds N]    N = 0 runs until Ctrl-C
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
seconds=20
while [ $# -gt 0 ]; do
  case "$1" in
    --seconds)
      seconds=${2:?--seconds takes a number}
      shift 2
      ;;
    *)
      echo "usage: $0 [--seconds N]" >&2
      exit 2
      ;;
  esac
done
[[ $seconds =~ ^[0-9]+$ ]] || { echo "demo: --seconds takes a whole number, not \"$seconds\"" >&2; exit 2; }

"$root/scripts/setup.sh" build
build=$root/build/release
[ -f "$build/build.ninja" ] || (cd "$root" && cmake --preset release -DV2X_DEVELOP=OFF >/dev/null)
echo "demo: building"
cmake --build "$build" --target v2x_spat_convert v2x_spat_sim >"$build/demo.log" 2>&1 || { cat "$build/demo.log"; exit 1; }

# Free ports in a row; a unit's own daemon may be running on the usual ones.
port_taken() { grep -qi ":$(printf '%04X' "$1") " /proc/net/udp; }
base=28000
for ((port = base; port < base + 6; port++)); do
  if port_taken "$port"; then base=$((port + 1)); fi
done
report_port=$base learner_port=$((base + 1)) stack_port=$((base + 2)) log_tool_port=$((base + 3))
frame_port=$((base + 4)) controller_port=$((base + 5))

work=$(mktemp -d /tmp/v2x_demo.XXXXXX)
pids=()
finish() {
  for pid in "${pids[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap finish EXIT
stop=0
trap 'stop=1' INT TERM

mkdir "$work/conf" "$work/log"
cp "$root/conf/sysinfo.xml" "$work/conf/"
sed -e "s|/opt/v2x_service|$work|" -e '/SignalMachine1743 =/,/};/s/LocalPort = [0-9]*/LocalPort = '$frame_port'/' \
  -e '/LearnMachine =/,/};/{s/192\.168\.1\.20/127.0.0.1/;s/LocalPort = [0-9]*/LocalPort = '$report_port'/;s/ Port = [0-9]*/ Port = '$learner_port'/}' \
  "$root/conf/v2x_spat_convert.cfg" >"$work/conf/v2x_spat_convert.cfg"
sed -e 's/\(_sndport\|conv_rcvport\) = [0-9]*/\1 = 0/' -e "s/logtool_rcvport = [0-9]*/logtool_rcvport = $log_tool_port/" \
  -e "s/app_rs_rcvport = [0-9]*/app_rs_rcvport = $stack_port/" "$root/conf/v2x_ipc.cfg" >"$work/conf/v2x_ipc.cfg"

# Sessions of their own, so that Ctrl-C reaches only this script, which stops them from the source onwards.
start() {
  setsid "$@" &
  pids+=($!)
}
end() {
  kill -TERM "$1" 2>/dev/null || true
  wait "$1" || { echo "demo: process $1 ended with status $?" >&2; failed=1; }
}
failed=0

echo "demo: work directory $work, log $work/log/spat_conv.log"
start "$build/bin/v2x_spat_sim" stack --listen "127.0.0.1:$stack_port" --summary "$work/stack.json"
start "$build/bin/v2x_spat_convert" -w "$work" -f "$work/log/spat_conv.log"
# The daemon listens once its last socket, the controller's, is bound.
for _ in $(seq 500); do
  port_taken "$frame_port" && break
  sleep 0.01
done
start "$build/bin/v2x_spat_sim" learner --target "127.0.0.1:$report_port" --listen "$learner_port" --quiet \
  --rate 1 --start 20 --summary "$work/learner.json"
start "$build/bin/v2x_spat_sim" controller --target "127.0.0.1:$frame_port" --listen "$controller_port" --quiet \
  --rate 0.5 --start 20 --summary "$work/controller.json"

for ((tick = 0; (seconds == 0 || tick < seconds * 10) && stop == 0; tick++)); do
  sleep 0.1 || true
  for pid in "${pids[@]}"; do kill -0 "$pid" 2>/dev/null || { echo "demo: process $pid is gone" >&2; failed=1; stop=1; }; done
done
trap '' INT TERM

echo
end "${pids[3]}"
end "${pids[2]}"
sleep 1 # the controller's last frame waits up to half a second
end "${pids[1]}"
end "${pids[0]}"
pids=()

value() { sed -n "s/.*\"$2\":\([0-9]*\).*/\1/p" "$work/$1.json"; }
reports=$(value learner sent)
frames=$(value controller sent)
received=$(value stack records)
echo "demo: daemon's log"
sed 's/^/  /' "$work/log/spat_conv.log" | grep -v ' node error$' || true
echo "demo: $reports reports and $frames frames sent, $received records received, $((reports + frames - received)) lost"
[ "$reports" -gt 0 ] && [ "$frames" -gt 0 ] && [ $((reports + frames)) -eq "$received" ] && [ "$failed" -eq 0 ]
