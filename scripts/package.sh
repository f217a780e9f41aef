#!/usr/bin/env bash
# Builds the Debian packages of the last commit, checks them with lintian, and writes them to build/package/ARCH.
# usage: package.sh [ARCH]    default: the architecture of this machine; on amd64 also arm64, a cross build
# Two builds of one commit give identical packages.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
native=$(dpkg --print-architecture)
arch=${1:-$native}
case $native,$arch in
  "$arch,$native") packages=package ;;
  amd64,arm64) packages=cross-arm64 ;;
  *)
    echo "usage: $0 [arm64]: this machine builds for $native, and on amd64 for arm64 too" >&2
    exit 2
    ;;
esac
"$root/scripts/setup.sh" "$packages"

output=$root/build/package/$arch
source=$output/source
rm -rf "$output"
mkdir -p "$source"
git -C "$root" archive HEAD | tar -x -C "$source"

version=$(sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
packaged=$(dpkg-parsechangelog -l "$source/debian/changelog" -S Version)
if [ "$packaged" != "$version" ]; then
  echo "package: debian/changelog has version $packaged, CMakeLists.txt has $version" >&2
  exit 1
fi

# The build has a home directory of its own, so ccache needs the path. A rebuild gives the debug symbols of a package.
CCACHE_DIR=$(ccache --get-config cache_dir 2>/dev/null) && export CCACHE_DIR
export DEB_BUILD_OPTIONS="noautodbgsym terse${DEB_BUILD_OPTIONS:+ $DEB_BUILD_OPTIONS}"
if ! (cd "$source" && dpkg-buildpackage --host-arch "$arch" -us -uc) >"$output/build.log" 2>&1; then
  tail -60 "$output/build.log" >&2
  exit 1
fi
rm -rf "$source"

lintian --allow-root --fail-on error,warning --show-overrides "$output"/*.changes
for package in "$output"/*.deb; do
  # shellcheck disable=SC2016 # dpkg-deb expands the names
  dpkg-deb --show --showformat '\n${Package} ${Version} ${Architecture}\n  Depends: ${Depends}\n' "$package"
  echo "  $(stat -c %s "$package") bytes, sha256 $(sha256sum "$package" | cut -d ' ' -f 1)"
done
