#!/usr/bin/env bash
# Tests the Debian packages on a clean machine: makes a minimal Debian 12, boots it in a container that has only a
# loop-back interface, and runs tests/package/checks.sh in it.
# usage: test_package.sh [FILE.deb]...    default: the packages that scripts/package.sh builds
# Takes Debian's packages from the mirrors of this machine's apt configuration. Needs root. Keeps only the built
# packages. The last line is "N passed, N failed, N not tested". Exit status: 0 no check failed, 1 a check failed, 77
# the test cannot run on this machine; then the only line is "package: not tested (REASON)".
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
skip() {
  echo "package: not tested ($1)"
  exit 77
}
[ "$(id -u)" -eq 0 ] || skip "only root can boot a machine"
for tool in mmdebstrap systemd-nspawn nsenter pgrep; do
  command -v "$tool" >/dev/null || skip "$tool is not installed"
done
unshare --mount --pid --fork --net true 2>/dev/null || skip "this machine permits no namespaces"

# Debian's own mirrors in one-line format; the suites by their code names
# shellcheck disable=SC2016 # apt-get replaces $(...)
sources=$(apt-get indextargets --format 'deb $(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' \
  'Origin: Debian' | awk '$3 ~ /^bookworm/' | sort -u)
mirror=$(awk '$3 == "bookworm" { print $2; exit }' <<<"$sources")
[ -n "$mirror" ] || skip "apt has no lists of Debian 12"

mkdir -p "$root/build"
work=$(mktemp -d "$root/build/package_test.XXXXXX")
cgroups=()
nspawn=
leader=

# Kills the machine by its first process, and removes all temporary files and control groups.
finish() {
  if [ -n "$nspawn" ]; then
    pkill -KILL -P "$nspawn" || kill -KILL "$nspawn" 2>/dev/null || true
    wait "$nspawn" || true
  fi
  for folder in "${cgroups[@]}"; do find "$folder" -depth -type d -exec rmdir {} + || true; done
  rm -rf --one-file-system "$work"
}
trap finish EXIT
trap 'exit 1' INT TERM

/usr/lib/apt/apt-helper -qq -o Acquire::Retries=0 -o Acquire::http::Timeout=10 download-file \
  "${mirror%/}/dists/bookworm/InRelease" "$work/InRelease" >/dev/null 2>&1 || skip "no package mirror is reachable"

# phase NAME COMMAND...: runs the command and notes how long it took
times=()
phase() {
  local begin=$SECONDS
  "${@:2}"
  times+=("$1 $((SECONDS - begin)) s")
}

# Makes version 0.9.0 of the daemon's package. Two of its default configuration files differ from the present ones.
make_old_version() {
  local old=$work/old
  dpkg-deb -R "$work"/packages/v2x-spat-convert_*.deb "$old"
  sed -i 's/^Version: .*/Version: 0.9.0/' "$old/DEBIAN/control"
  for name in v2x_spat_convert v2x_ipc; do
    echo "# default of version 0.9.0" >>"$old/etc/v2x_spat_convert/$name.cfg"
  done
  mkdir "$work/packages/old"
  dpkg-deb -Zgzip -z1 -b "$old" "$work/packages/old" >/dev/null
}

# Makes the machine's file system. apt's cache in it has the packages' dependencies: the machine has no network.
# shellcheck disable=SC2016 # mmdebstrap gives $1 to the hooks
make_machine() {
  local download='apt-get install -y -qq --no-install-recommends --download-only /packages/*.deb'
  PACKAGES=$work/packages mmdebstrap --quiet --mode=root --variant=apt --include=systemd-sysv,dbus,iproute2 \
    --dpkgopt=force-unsafe-io --skip=cleanup/apt --customize-hook='cp -r "$PACKAGES" "$1/packages"' \
    --customize-hook='chroot "$1" sh -c '"'$download'" \
    bookworm "$work/root" - <<<"$sources" >"$work/bootstrap.log" 2>&1 || {
    cat "$work/bootstrap.log"
    return 1
  }
}

# Without systemd on the host, the machine needs a control group of its own, in each hierarchy that systemd uses.
make_cgroups() {
  [ ! -d /run/systemd/system ] || return 0
  for folder in /sys/fs/cgroup /sys/fs/cgroup/unified /sys/fs/cgroup/systemd; do
    if [ -f "$folder/cgroup.procs" ]; then
      mkdir "$folder/v2x_package_test_$$" || skip "this machine permits no control groups"
      cgroups+=("$folder/v2x_package_test_$$")
    fi
  done
}

# Boots the machine and sets nspawn and leader, the process ids of systemd-nspawn and of the machine's first process.
boot() {
  local options=(--quiet --register=no --private-network --boot --console=pipe --machine="v2x-package-test-$$"
    --directory="$work/root" --bind-ro="$root/tests/package:/checks" --system-call-filter=bpf)
  [ ${#cgroups[@]} -eq 0 ] || options+=(--keep-unit)
  (
    for folder in "${cgroups[@]}"; do echo "$BASHPID" >"$folder/cgroup.procs"; done
    export SYSTEMD_NSPAWN_UNIFIED_HIERARCHY=1
    exec setsid systemd-nspawn "${options[@]}"
  ) </dev/null >"$work/boot.log" 2>&1 &
  nspawn=$!
  local state=
  for _ in $(seq 300); do
    sleep 0.1
    kill -0 "$nspawn" 2>/dev/null || break
    leader=$(pgrep -P "$nspawn") || continue
    state=$(inside systemctl is-system-running 2>/dev/null) || true
    [[ $state == running || $state == degraded ]] && return 0
  done
  cat "$work/boot.log"
  echo "package: the machine does not boot, its state is \"$state\""
  return 1
}

reboot() {
  inside systemctl poweroff
  timeout 60 tail --pid="$nspawn" -f /dev/null || return 1
  wait "$nspawn" || true
  nspawn=
  boot
}

# Runs a command in the machine, in a session of its own: its signals do not reach this script.
inside() {
  setsid --wait nsenter --target "$leader" --all \
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 "$@" </dev/null
}

status=0
run_checks() { inside timeout 300 /checks/checks.sh /packages "$1" | tee -a "$work/rows" || status=$?; }

if [ $# -eq 0 ]; then
  architecture=$(dpkg --print-architecture)
  phase build "$root/scripts/package.sh" "$architecture"
  set -- "$root/build/package/$architecture"/*.deb
fi
mkdir "$work/packages"
cp "$@" "$work/packages"
rm -f "$work"/packages/*-dbgsym_*.deb
phase repack make_old_version
phase bootstrap make_machine
make_cgroups
phase boot boot
phase checks run_checks before_reboot
if [ "$status" -lt 2 ]; then
  phase reboot reboot
  phase "checks after the reboot" run_checks after_reboot
else
  echo "package: ended early, the other checks did not run"
fi

count() { grep -c "^$1 " "$work/rows" || true; }
failed=$(count FAILED)
[ "$failed" -gt 0 ] || failed=$((status != 0))
(IFS=,; echo "package: ${times[*]}")
echo "$(count ok) passed, $failed failed, $(count 'not tested') not tested"
[ "$failed" -eq 0 ]
