#!/usr/bin/env bash
# Shows the main job: the lights that a signal learner, a GA/T 1743 controller and the cloud report arrive at the stack
# application as SPAT records, and the stack application's SPAT arrives in the cloud. Runs the daemon between simulators in a
# temporary work directory, prints what arrives live and ends with a summary.
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
device=DEMO$$ # topics of its own
sed "s|<device_id>.*</device_id>|<device_id>$device</device_id>|" "$root/conf/sysinfo.xml" >"$work/conf/sysinfo.xml"
sed -e "s|/opt/v2x_service|$work|" -e '/SignalMachine1743 =/,/};/s/LocalPort = [0-9]*/LocalPort = '$frame_port'/' \
  -e '/LearnMachine =/,/};/{s/192\.168\.1\.20/127.0.0.1/;s/LocalPort = [0-9]*/LocalPort = '$report_port'/;s/ Port = [0-9]*/ Port = '$learner_port'/}' \
  "$root/conf/v2x_spat_convert.cfg" >"$work/conf/v2x_spat_convert.cfg"
sed -e 's/\(_sndport\|conv_rcvport\) = [0-9]*/\1 = 0/' -e "s/logtool_rcvport = [0-9]*/logtool_rcvport = $log_tool_port/" \
  -e "s/app_rs_rcvport = [0-9]*/app_rs_rcvport = $stack_port/" "$root/conf/v2x_ipc.cfg" >"$work/conf/v2x_ipc.cfg"

# Sessions of their own, so that Ctrl-C reaches only this script, which stops them from the source onwards.
start() { # NAME PROGRAM ARGUMENT...: its process id goes into the variable NAME
  setsid "${@:2}" &
  pids+=($!)
  printf -v "$1" %s $!
}
end() {
  kill -TERM "$1" 2>/dev/null || true
  wait "$1" || { echo "demo: process $1 ended with status $?" >&2; failed=1; }
}
failed=0

echo "demo: work directory $work, log $work/log/spat_conv.log"
start stack "$build/bin/v2x_spat_sim" stack --listen "127.0.0.1:$stack_port" --summary "$work/stack.json"
start cloud "$build/bin/v2x_spat_sim" cloud --device "$device" --rate 0 --status none --summary "$work/cloud.json"
start daemon "$build/bin/v2x_spat_convert" -w "$work" -f "$work/log/spat_conv.log"
# The daemon listens once its last socket, the controller's, is bound; it finds the cloud's topics within two seconds.
for _ in $(seq 500); do
  port_taken "$frame_port" && break
  sleep 0.01
done
sleep 2
start learner "$build/bin/v2x_spat_sim" learner --target "127.0.0.1:$report_port" --listen "$learner_port" --quiet \
  --rate 1 --start 20 --summary "$work/learner.json"
start controller "$build/bin/v2x_spat_sim" controller --target "127.0.0.1:$frame_port" --listen "$controller_port" --quiet \
  --rate 0.5 --start 20 --summary "$work/controller.json"
start source "$build/bin/v2x_spat_sim" cloud --device "$device" --quiet --rate 0.5 --status 1 --status-interval 2 \
  --summary "$work/source.json"

for ((tick = 0; (seconds == 0 || tick < seconds * 10) && stop == 0; tick++)); do
  sleep 0.1 || true
  for pid in "${pids[@]}"; do kill -0 "$pid" 2>/dev/null || { echo "demo: process $pid is gone" >&2; failed=1; stop=1; }; done
done
trap '' INT TERM

echo
end "$source"
end "$controller"
end "$learner"
sleep 1 # the controller's last frame waits up to half a second
end "$stack"
sleep 1 # the stack's last answer waits up to 0.3 s
end "$daemon"
end "$cloud"
pids=()

value() { sed -n "s/.*\"$2\":\([0-9]*\).*/\1/p" "$work/$1.json"; }
reports=$(value learner sent)
frames=$(value controller sent)
documents=$(value source downGood)
received=$(value stack records)
answers=$(value stack repliesGood)
up=$(value cloud upGood)
echo "demo: daemon's log"
sed 's/^/  /' "$work/log/spat_conv.log" | grep -vE ' node error|NO SPAT data|item failed!|utcTiming failed!' || true
lost=$((reports + frames + documents - received))
lost_up=$((answers - up))
echo "demo: $reports reports, $frames frames and $documents documents sent, $received records received, $lost lost"
echo "demo: $answers SPATs from the stack, $up documents in the cloud, $lost_up lost; $(value cloud statusRecords) status records"
[ "$reports" -gt 0 ] && [ "$frames" -gt 0 ] && [ "$documents" -gt 0 ] && [ "$up" -gt 0 ] &&
  [ "$lost" -eq 0 ] && [ "$lost_up" -eq 0 ] && [ "$failed" -eq 0 ]
