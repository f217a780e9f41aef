#!/usr/bin/env bash
# Checks the Debian packages in the machine that scripts/test_package.sh has booted. Runs there as root.
# usage: checks.sh FOLDER before_reboot|after_reboot
#   FOLDER                         the packages; FOLDER/old has version 0.9.0 of the daemon's package
#   before_reboot, after_reboot    the table of checks to run
# Prints a line for each check: result, seconds, what is checked, figures or reason. Exit status: 1 a check failed,
# 2 the packages cannot be installed, so that the other checks did not run.
# The checks build on each other: the packages are installed, configured, used, upgraded and removed.
set -uo pipefail

packages=$1
service=v2x-spat-convert.service
web=v2x-spat-web.service
conf=/etc/v2x_spat_convert
config=$conf/v2x_spat_convert.cfg
logs=/var/log/v2x_spat_convert
log=$logs/spat_conv.log
state=$(mktemp -d) # files of this program

# FUNCTION|what it checks; "checks" below refers to one of the tables
# shellcheck disable=SC2034
before_reboot=(
  "install|apt installs the packages without a network"
  "first_start|the service is enabled, runs as _v2x without capabilities; its configuration has no problem"
  "report|after an edit of the configuration, reports arrive as records"
  "status|v2x_spat_ctl status ends with 0 and shows the release"
  "dds|DDS on loop-back: the cloud gets the daemon's status, the daemon gets the cloud's"
  "exposure|the exposure of each unit is at most 1.5"
  "real_time|the sandbox permits real-time threads"
  "real_time_limit|LimitRTPRIO is enough for real-time threads"
  "web|the web service is off; after a start it answers"
  "address_filter|the web service exchanges packets only with loop-back addresses (BPF)"
  "kills|kill -9, 20 times: ready again within a second"
  "watchdog|SIGSTOP: the watchdog restarts the service"
  "broken|a wrong configuration: one failed start with status 78; journal and v2x_spat_ctl check name the key"
  "rotation|the log rotates at 10 MiB and keeps five old files"
)
# shellcheck disable=SC2034
after_reboot=(
  "boot|the service starts when the machine boots"
  "downgrade|downgrade without a question: keeps the edited file, replaces the other"
  "upgrade|upgrade without a question: keeps the edited file, replaces the other"
  "reinstall|upgrade with unchanged defaults: no question, though apt has no option that prevents it"
  "remove|removal ends the service; configuration and log stay"
  "purge|purge deletes configuration, log and work directory"
)

declare -n checks=$2

figure() { echo "$*" >&3; } # adds text to the line of a check
not_tested() {
  figure "$1"
  exit 77
}
fails() { # for a command that has to fail; "!" would not end the check
  if "$@"; then return 1; fi
}
show() { systemctl show --property "$1" --value "${2:-$service}"; }
# wait_for SECONDS COMMAND...: repeats the command until it succeeds
wait_for() {
  local - end=$((SECONDS + $1))
  set +x
  until "${@:2}" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$end" ] || "${@:2}" || return 1
    sleep 0.05
  done
}
ready_since() { show ActiveEnterTimestampMonotonic; }
is_ready_again() { [ "$(ready_since)" != "$1" ]; } # $1: ready_since before the restart
# Prints the microseconds since boot, at most 10 ms less, as the time stamps of a unit count them.
now() {
  local up
  read -r up _ </proc/uptime
  echo $((10#${up/./} * 10000))
}
# Prints the milliseconds from $1 (see now) until the service was ready.
ready_after() { echo $((($(ready_since) - $1) / 1000)); }
apt_offline() { apt-get -q -y -o Dpkg::Use-Pty=0 "$@"; }
edit_learner() { sed -i "/LearnMachine =/,/};/{$1}" "$config"; } # sed commands for the group LearnMachine
# Starts the simulators of the learner and of the stack application. Fails if the latter receives no valid records.
start_peers() {
  systemd-run --unit=learner v2x_spat_sim learner --rate 5 --quiet
  v2x_spat_sim stack --count 4 --seconds 10 --summary "$state/stack.json"
  grep '"records":4,.*"refused":0,' "$state/stack.json"
  systemd-run --unit=stack v2x_spat_sim stack --quiet
}
restart_with() { # restarts unit $1 with the drop-in lines $2..., or as it is
  local folder=/run/systemd/system/$1.d
  rm -rf "$folder"
  if [ $# -gt 1 ]; then
    mkdir -p "$folder"
    printf '%s\n' '[Service]' "${@:2}" >"$folder/test.conf"
  fi
  systemctl daemon-reload
  systemctl restart "$1"
}

install() {
  apt_offline install --no-install-recommends "$packages"/*.deb
  figure "$(dpkg-query -W -f '${Package} ${Version}, ' 'v2x-spat-*' 'libv2x-*')"
}

first_start() {
  systemctl is-enabled "$service"
  systemctl is-active "$service"
  local process
  process=/proc/$(show MainPID)
  [ "$(stat -c %U:%G "$process")" = _v2x:_v2x ]
  grep -E '^CapBnd:\s0+$' "$process/status"
  grep -E '^NoNewPrivs:\s1$' "$process/status"
  [ "$(awk '$2 == "(SPAT_Control)" { print $19 }' "$process"/task/*/stat)" = 10 ] # its nice value
  v2x_spat_ctl check
}

report() {
  edit_learner 's/IsEnable = false/IsEnable = true/; s/192\.168\.1\.20/127.0.0.1/'
  systemctl restart "$service"
  start_peers
}

status() {
  wait_for 10 v2x_spat_ctl status
  local head
  head=$(v2x_spat_ctl status | head -1)
  figure "$head"
  [[ $head == *"(release $(dpkg-query -W -f '${Version}' v2x-spat-convert))"* ]]
}

dds() {
  v2x_spat_sim cloud --seconds 10 --status 1 --status-interval 1 --quiet --summary "$state/cloud.json" &
  wait_for 7 eval 'v2x_spat_ctl status | grep "^cloud *available"'
  wait
  figure "$(grep -o '"statusRecords":[1-9][0-9]*' "$state/cloud.json")"
}

exposure() {
  for unit in "$service" "$web"; do
    systemd-analyze security --no-pager --threshold=15 "$unit" >"$state/exposure" || {
      cat "$state/exposure"
      return 1
    }
    figure "$(sed -n 's/.*level for \(.*\): \([0-9.]*\) .*/\1 \2/p' "$state/exposure")"
  done
}

# Fails if no thread of the daemon has the policy SCHED_RR.
has_real_time_threads() {
  local threads
  threads=$(chrt --all-tasks --pid "$(show MainPID)" | grep -c 'policy: SCHED_RR')
  figure "$threads threads"
}
# With CAP_SYS_NICE the threads need no limit: a container may not always raise it.
real_time() {
  trap 'restart_with "$service"' EXIT
  restart_with "$service" PrivateUsers=no CapabilityBoundingSet=CAP_SYS_NICE AmbientCapabilities=CAP_SYS_NICE
  has_real_time_threads
}
real_time_limit() {
  [ "$(systemd-run --quiet --wait --pipe --property=LimitRTPRIO=50 bash -c 'ulimit -r')" = 50 ] ||
    not_tested "this machine may not raise RLIMIT_RTPRIO"
  has_real_time_threads
}

get() { # prints the answer of the web server at address $1 for the path $2
  # shellcheck disable=SC2016 # expanded by the inner shell, which timeout can end
  timeout 3 bash -c 'exec 4<>"/dev/tcp/$0/8080" || exit
    printf "GET %s HTTP/1.0\r\nHost: 127.0.0.1:8080\r\n\r\n" "$1" >&4
    cat <&4' "$@"
}
has_answer() { get "$1" "$2" | grep "$3"; }
web() {
  [ "$(systemctl is-enabled "$web")" = disabled ]
  [ "$(systemctl is-active "$web")" = inactive ]
  systemctl start "$web"
  wait_for 5 has_answer 127.0.0.1 /api/status learner
  has_answer 127.0.0.1 /metrics '^v2x_spat_up 1'
  has_answer 127.0.0.1 / '^HTTP/1.1 200'
  systemctl stop "$web"
}

address_filter() {
  systemd-run --quiet --wait --property=IPAddressDeny=any bash -c '! echo >/dev/udp/127.0.0.1/9' ||
    not_tested "this machine has no BPF filters for control groups"
  ip address add 192.0.2.1/32 dev lo
  trap 'systemctl stop "$web"' EXIT
  local start
  start=$(sed -n 's/^ExecStart=//p' "$(show FragmentPath "$web")")
  for deny in IPAddressDeny= ""; do # without the filter, then with it
    restart_with "$web" ExecStart= "ExecStart=$start --listen 0.0.0.0:8080" "$deny"
    wait_for 5 has_answer 127.0.0.1 / '^HTTP/1.1 200'
    if [ -n "$deny" ]; then has_answer 192.0.2.1 / HTTP; else fails get 192.0.2.1 /; fi
  done
}

kills() {
  local slowest=0 before killed down
  for _ in $(seq 20); do
    before=$(ready_since)
    killed=$(now)
    systemctl kill --kill-whom=main --signal=KILL "$service"
    wait_for 5 is_ready_again "$before"
    down=$(ready_after "$killed")
    slowest=$((down > slowest ? down : slowest))
  done
  figure "slowest $slowest ms"
  [ "$slowest" -le 1000 ]
  wait_for 10 v2x_spat_ctl status # the learner's reports arrive
}

watchdog() {
  local before stopped
  before=$(ready_since)
  stopped=$(now)
  systemctl kill --kill-whom=main --signal=STOP "$service"
  wait_for 30 is_ready_again "$before"
  journalctl --unit "$service" | grep 'Watchdog timeout'
  figure "ready after $(ready_after "$stopped") ms"
  wait_for 10 v2x_spat_ctl status
}

broken() {
  cp -p "$config" "$state/good.cfg"
  trap 'cp -p "$state/good.cfg" "$config"; systemctl restart "$service"' EXIT
  edit_learner 's/OnlyFrom = "127/OnlyFrom = "327/'
  fails systemctl restart "$service"
  sleep 2 # a restart would come after 0.5 s
  [ "$(show ActiveState) $(show Result) $(show ExecMainStatus) $(show NRestarts)" = "failed exit-code 78 0" ]
  journalctl --unit "$service" --output cat | grep 'v2x_spat_convert.cfg.*OnlyFrom'
  fails v2x_spat_ctl check >"$state/check"
  figure "$(grep -m1 'v2x_spat_convert.cfg:[0-9]*:.*OnlyFrom' "$state/check")"
}

rotation() {
  local size=$((10 * 1024 * 1024 - 10)) # the first line of the daemon does not fit
  systemctl stop "$service"
  for i in 1 2 3 4 5; do echo "old $i" >"$logs/spat_conv.$i.log"; done
  truncate --size=$size "$log"
  chown _v2x: "$logs"/*
  systemctl start "$service"
  [ "$(stat -c %s "$logs/spat_conv.1.log")" = $size ]
  for i in 1 2 3 4; do grep -x "old $i" "$logs/spat_conv.$((i + 1)).log"; done
  [ "$(find "$logs" -type f | wc -l)" = 6 ]
  grep -m1 'starts with work directory' "$log"
}

boot() {
  systemctl is-active "$service"
  start_peers
  wait_for 10 v2x_spat_ctl status
  fails systemctl is-active "$web"
  local begin
  begin=$(systemctl show --property UserspaceTimestampMonotonic --value)
  figure "ready $(ready_after "$begin") ms after the first process"
}

# change_version PACKAGE VERSION COUNT APT_OPTION...: installs the package. The edited file must stay, and the file that
# is not edited must be the one of the package. COUNT: 1 if its default files are those of version 0.9.0, else 0
change_version() {
  local before
  before=$(sha256sum "$config")
  apt_offline install --allow-downgrades "${@:4}" "$1"
  [ "$(dpkg-query -W -f '${Version} ${db:Status-Status}' v2x-spat-convert)" = "$2 installed" ]
  [ "$(sha256sum "$config")" = "$before" ]
  [ "$(grep -c 'default of version 0.9.0' "$config.dpkg-dist")" = "$3" ]
  [ "$(grep -c 'default of version 0.9.0' "$conf/v2x_ipc.cfg")" = "$3" ]
  wait_for 10 v2x_spat_ctl status
  figure "the service was down for $(ready_after "$(show ActiveExitTimestampMonotonic)") ms"
}
new_package() { echo "$packages"/v2x-spat-convert_*.deb; }
downgrade() { change_version "$packages"/old/*.deb 0.9.0 1 -o Dpkg::Options::=--force-confold; }
upgrade() {
  change_version "$(new_package)" "$(dpkg-deb -f "$(new_package)" Version)" 0 -o Dpkg::Options::=--force-confold
}
reinstall() { change_version "$(new_package)" "$(dpkg-deb -f "$(new_package)" Version)" 0 --reinstall; }

remove() {
  apt_offline remove v2x-spat-convert
  fails systemctl is-active "$service"
  fails test -e /usr/sbin/v2x_spat_convert
  fails test -e /run/v2x_spat_convert
  grep '127.0.0.1' "$config"
  test -s "$log"
}

purge() {
  apt_offline purge v2x-spat-convert
  for path in "$conf" "$logs" /var/lib/v2x_spat_convert; do fails test -e "$path"; done
  figure "the user _v2x $(id _v2x >/dev/null 2>&1 && echo stays || echo is deleted)"
}

failed=0
for row in "${checks[@]}"; do
  begin=$SECONDS
  (
    set -ex
    "${row%%|*}"
  ) >"$state/output" 2>&1 3>"$state/figures"
  case $? in
    0) result=ok ;;
    77) result="not tested" ;;
    *) result=FAILED failed=1 ;;
  esac
  printf '%-10s %2d s  %s%s\n' "$result" $((SECONDS - begin)) "${row#*|}" \
    "$(sed 's/, $//; s/^/: /' "$state/figures" | paste -sd ' ' | sed 's/ : /, /g')"
  if [ "$result" = FAILED ]; then
    { tail -40 "$state/output"; journalctl --unit "$service" --lines 10 --no-pager; } | sed 's/^/    /'
    [ "${row%%|*}" != install ] || exit 2
  fi
done
[ "$failed" -eq 0 ]
