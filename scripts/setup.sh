#!/usr/bin/env bash
# Installs the missing Debian packages. Does nothing if none is missing.
# usage: setup.sh [build|all|coverage]
#   build       the packages that building and running the programs needs
#   all         the packages for tests, benchmarks and fuzzing as well (default)
#   coverage    the packages of "all" and gcovr
set -euo pipefail

build_packages=(
  g++ cmake ninja-build pkg-config asn1c
  libspdlog-dev libconfig-dev libsystemd-dev libcli11-dev libcjson-dev
  libfastrtps-dev libfastcdr-dev
  libncurses-dev libpcap-dev libcpp-httplib-dev prometheus-cpp-dev
)
develop_packages=(
  libgtest-dev libgmock-dev libbenchmark-dev
  clang clang-format libclang-rt-14-dev
  cyclonedds-dev cyclonedds-tools faketime iproute2 python3
  chromium tshark prometheus tcpdump
)

case "${1:-all}" in
  build) wanted=("${build_packages[@]}") ;;
  all) wanted=("${build_packages[@]}" "${develop_packages[@]}") ;;
  coverage) wanted=("${build_packages[@]}" "${develop_packages[@]}" gcovr) ;;
  *)
    echo "usage: $0 [build|all|coverage]" >&2
    exit 2
    ;;
esac

# dpkg-query prints one line for each architecture for which a package is installed.
native=$(dpkg --print-architecture)
missing=()
for package in "${wanted[@]}"; do
  installed=$(dpkg-query -W -f '${Architecture} ${db:Status-Status}\n' "$package" 2>/dev/null || true)
  grep -qxE "(all|$native) installed" <<<"$installed" || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if sudo -n true 2>/dev/null; then
    as_root=(sudo)
  else
    echo "setup: packages are missing and only root can install them: ${missing[*]}" >&2
    echo "setup: run as root: apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
  fi
fi
echo "setup: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
