#!/usr/bin/env bash
# Installs the missing Debian packages. Does nothing if none is missing.
# usage: setup.sh [build|package|cross-arm64|all|coverage]
#   build        the packages that building and running the programs needs
#   package      the packages that building the Debian packages needs
#   cross-arm64  the packages that building the Debian packages of arm64 on another architecture needs. It replaces the
#                native prometheus-cpp-dev, which can be installed for one architecture only; "build" restores it
#   all          the packages for building, packaging, tests, benchmarks and fuzzing (default)
#   coverage     the packages of "all" and gcovr
set -euo pipefail

build_tools=(g++ cmake ninja-build pkg-config asn1c libcli11-dev scdoc)
libraries=(
  libspdlog-dev libconfig-dev libsystemd-dev libcjson-dev libfastrtps-dev libfastcdr-dev
  libncurses-dev libpcap-dev libcpp-httplib-dev prometheus-cpp-dev
)
package_tools=(git build-essential debhelper lintian)
develop_packages=(
  libgtest-dev libgmock-dev libbenchmark-dev
  ccache clang clang-format libclang-rt-14-dev
  cyclonedds-dev cyclonedds-tools faketime iproute2 python3
  chromium tshark prometheus tcpdump
  man-db groff-base mmdebstrap arch-test systemd-container procps
)

wanted=("${build_tools[@]}" "${libraries[@]}")
case "${1:-all}" in
  build) ;;
  package) wanted+=("${package_tools[@]}") ;;
  cross-arm64)
    wanted=("${build_tools[@]}" "${package_tools[@]}" crossbuild-essential-arm64 "${libraries[@]/%/:arm64}")
    ;;
  all) wanted+=("${package_tools[@]}" "${develop_packages[@]}") ;;
  coverage) wanted+=("${package_tools[@]}" "${develop_packages[@]}" gcovr) ;;
  *)
    echo "usage: $0 [build|package|cross-arm64|all|coverage]" >&2
    exit 2
    ;;
esac

# dpkg-query prints one line for each architecture for which a package is installed.
native=$(dpkg --print-architecture)
missing=()
for package in "${wanted[@]}"; do
  [[ $package == *:* ]] && arch=${package#*:} || arch=$native
  installed=$(dpkg-query -W -f '${Architecture} ${db:Status-Status}\n' "$package" 2>/dev/null || true)
  grep -qxE "(all|$arch) installed" <<<"$installed" || missing+=("$package")
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
[[ ${missing[*]} == *:arm64* ]] && "${as_root[@]}" dpkg --add-architecture arm64
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
