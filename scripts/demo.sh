#!/usr/bin/env bash
# Shows the daemon between simulators, in a temporary work directory. A signal learner, a GA/T 1743 controller and the cloud
# report lights. The stack application receives each report as a SPAT record. The cloud receives the stack application's SPAT.
# Prints each received message, then the state of the daemon, the lights and a summary. Draws the signal-timing diagram of
# the first five minutes. The exit status is 0 if no message is lost.
# usage: demo.sh [--seconds N] [--web] [--picture FILE]
#   --seconds N       runs N seconds (default 20); 0 runs until Ctrl-C
#   --web             serves a page with the lights and prints its address instead of the messages
#   --picture FILE    the signal-timing diagram (default demo.svg)
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
seconds=20
web=0
quiet=()
picture=demo.svg
while [ $# -gt 0 ]; do
  case "$1" in
    --seconds)
      seconds=${2:?--seconds takes a number}
      shift 2
      ;;
    --web)
      web=1
      quiet=(--quiet)
      shift
      ;;
    --picture)
      picture=${2:?--picture takes a file}
      shift 2
      ;;
    *)
      echo "usage: $0 [--seconds N] [--web] [--picture FILE]" >&2
      exit 2
      ;;
  esac
done
[[ $seconds =~ ^[0-9]+$ ]] || { echo "demo: --seconds takes a whole number, not \"$seconds\"" >&2; exit 2; }

"$root/scripts/setup.sh" build
build=$root/build/release
[ -f "$build/build.ninja" ] || (cd "$root" && cmake --preset release -DV2X_DEVELOP=OFF >/dev/null)
echo "demo: building"
cmake --build "$build" --target v2x_spat_convert v2x_spat_sim v2x_spat_ctl >"$build/demo.log" 2>&1 || { cat "$build/demo.log"; exit 1; }

# Finds six consecutive free ports: another daemon on this machine may use the default ports.
is_port_in_use() { grep -qi ":$(printf '%04X' "$1") " "/proc/net/${2:-udp}"; }
base=28000
for ((port = base; port < base + 6; port++)); do
  if is_port_in_use "$port"; then base=$((port + 1)); fi
done
report_port=$base learner_port=$((base + 1)) stack_port=$((base + 2)) log_tool_port=$((base + 3))
frame_port=$((base + 4)) controller_port=$((base + 5))
page_port=28080
while is_port_in_use "$page_port" tcp; do page_port=$((page_port + 1)); done

work=$(mktemp -d /tmp/v2x_demo.XXXXXX)
pids=()
capture=
finish() {
  for pid in "${pids[@]}" $capture; do kill -KILL "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap finish EXIT
stop=0
trap 'stop=1' INT TERM

mkdir "$work/conf" "$work/log"
device=DEMO$$ # the process id makes the topic names unique
sed "s|<device_id>.*</device_id>|<device_id>$device</device_id>|" "$root/conf/sysinfo.xml" >"$work/conf/sysinfo.xml"
# Both devices are enabled and all their records are forwarded. The simulators send from 127.0.0.1. The controller's phases
# 7 to 10 are the left turns, which the learner reports as phases 5 to 8.
left_turns='PhaseID5 = 7; PhaseID6 = 8; PhaseID7 = 9; PhaseID8 = 10; PhaseID9 = 5; PhaseID10 = 6;'
sed -e "s|/opt/v2x_service|$work|" -e 's/IsEnable = false/IsEnable = true/' \
  -e 's/OnStale = "unavailable"/OnStale = "nothing"/' \
  -e 's/192\.168\.1\.[23]0/127.0.0.1/' -e '/SignalMachine1743 =/,/};/s/LocalPort = [0-9]*/LocalPort = '$frame_port'/' \
  -e "/SignalMachine1743 =/,/};/s/# PhaseRelationship = .*/PhaseRelationship = { $left_turns };/" \
  -e '/LearnMachine =/,/};/{s/LocalPort = [0-9]*/LocalPort = '$report_port'/;s/ Port = [0-9]*/ Port = '$learner_port'/}' \
  "$root/conf/v2x_spat_convert.cfg" >"$work/conf/v2x_spat_convert.cfg"
sed -e 's/\(_sndport\|conv_rcvport\) = [0-9]*/\1 = 0/' -e "s/logtool_rcvport = [0-9]*/logtool_rcvport = $log_tool_port/" \
  -e "s/app_rs_rcvport = [0-9]*/app_rs_rcvport = $stack_port/" "$root/conf/v2x_ipc.cfg" >"$work/conf/v2x_ipc.cfg"

# start NAME PROGRAM ARGUMENT...: starts the program and sets the variable NAME to its process id.
# Each program gets its own session, so that Ctrl-C reaches only this script. The script stops the senders first.
start() {
  setsid "${@:2}" &
  pids+=($!)
  printf -v "$1" %s $!
}
stop_process() {
  kill -TERM "$1" 2>/dev/null || true
  wait "$1" || { echo "demo: process $1 ended with exit status $?" >&2; failed=1; }
}
failed=0

echo "demo: work directory $work, log $work/log/spat_conv.log"
start stack "$build/bin/v2x_spat_sim" stack --listen "127.0.0.1:$stack_port" "${quiet[@]}" --summary "$work/stack.json"
start cloud "$build/bin/v2x_spat_sim" cloud --device "$device" "${quiet[@]}" --rate 0 --status none \
  --summary "$work/cloud.json"
start daemon "$build/bin/v2x_spat_convert" -w "$work" -f "$work/log/spat_conv.log"
# The daemon binds the controller's socket last. It discovers the cloud's topics within two seconds.
for _ in $(seq 500); do
  is_port_in_use "$frame_port" && break
  sleep 0.01
done
sleep 2
start learner "$build/bin/v2x_spat_sim" learner --target "127.0.0.1:$report_port" --listen "$learner_port" --quiet \
  --rate 1 --start 20 --summary "$work/learner.json"
start controller "$build/bin/v2x_spat_sim" controller --target "127.0.0.1:$frame_port" --listen "$controller_port" --quiet \
  --rate 1 --start 20 --summary "$work/controller.json"
start source "$build/bin/v2x_spat_sim" cloud --device "$device" --quiet --rate 0.5 --start 20 --status 1 \
  --status-interval 2 --summary "$work/source.json"

capture_seconds=$((seconds > 0 && seconds < 300 ? seconds : 300)) # limits the size of the file
setsid "$build/bin/v2x_spat_ctl" capture -w "$work" -o "$work/demo.pcap" --seconds "$capture_seconds" >"$work/capture.txt" &
capture=$!
if [ "$web" -eq 1 ]; then
  start page "$build/bin/v2x_spat_ctl" serve -w "$work" --listen "127.0.0.1:$page_port"
fi

for ((tick = 0; (seconds == 0 || tick < seconds * 10) && stop == 0; tick++)); do
  sleep 0.1 || true
  for pid in "${pids[@]}"; do kill -0 "$pid" 2>/dev/null || { echo "demo: process $pid ended unexpectedly" >&2; failed=1; stop=1; }; done
done
trap '' INT TERM

echo
echo "demo: v2x_spat_ctl status"
"$build/bin/v2x_spat_ctl" status -w "$work" || [ $? -eq 1 ] || failed=1 # 1: a state or a check to look at
echo "demo: v2x_spat_ctl lights"
"$build/bin/v2x_spat_ctl" lights -w "$work" || failed=1
if [ "$web" -eq 1 ]; then stop_process "$page"; fi
stop_process "$capture"
capture=
stop_process "$source"
stop_process "$controller"
stop_process "$learner"
sleep 1 # the daemon processes the controller's last frame after up to 0.5 s
stop_process "$stack"
sleep 1 # the daemon forwards the stack application's last reply after up to 0.3 s
stop_process "$daemon"
stop_process "$cloud"
pids=()

"$build/bin/v2x_spat_ctl" picture -w "$work" --from "$work/demo.pcap" -o "$picture" || failed=1

read_count() { sed -n "s/.*\"$2\":\([0-9]*\).*/\1/p" "$work/$1.json"; }
reports=$(read_count learner sent)
frames=$(read_count controller sent)
documents=$(read_count source downGood)
received=$(read_count stack records)
replies=$(read_count stack repliesGood)
up=$(read_count cloud upGood)
echo "demo: the daemon's log:"
sed 's/^/  /' "$work/log/spat_conv.log" | grep -vE ' node error|NO SPAT data|item failed!|utcTiming failed!' || true
lost=$((reports + frames + documents - received))
lost_up=$((replies - up))
echo "demo: $reports reports, $frames frames and $documents documents sent, $received records received, $lost lost"
echo "demo: the stack application sent $replies SPATs, the cloud received $up documents, $lost_up lost"
echo "demo: the cloud received $(read_count cloud statusRecords) status records"
[ "$reports" -gt 0 ] && [ "$frames" -gt 0 ] && [ "$documents" -gt 0 ] && [ "$up" -gt 0 ] &&
  [ "$lost" -eq 0 ] && [ "$lost_up" -eq 0 ] && [ "$failed" -eq 0 ]
