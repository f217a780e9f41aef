#!/usr/bin/env bash
# Installs the Debian packages that the project needs and that are missing.
# usage: setup.sh [build|all|coverage]    build = packages to build and run the programs; all (default) = those for
#                                         tests, benchmarks and fuzzing, too; coverage = all, and gcovr
set -euo pipefail

build_packages=(
  g++ cmake ninja-build pkg-config asn1c
  libspdlog-dev libconfig-dev libsystemd-dev libcli11-dev libcjson-dev
  libfastrtps-dev libfastcdr-dev
)
develop_packages=(
  libgtest-dev libgmock-dev libbenchmark-dev
  clang clang-format libclang-rt-14-dev
  cyclonedds-dev cyclonedds-tools faketime python3
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

# A package may be installed for several architectures: dpkg-query prints a line for each.
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
    echo "setup: these packages are missing and this user may not install them: ${missing[*]}" >&2
    echo "setup: as root: apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
  fi
fi
echo "setup: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
