#!/bin/sh
# Builds the four Debian packages of the project for one architecture:
# lasercali-plugin (the calibration plug-in alone), lasercali-calc (the
# calculation nodes' plug-in alone), lasercali-tools (libkiv, libsunxi_cam,
# kivrun, stripe-inspect, sim-pictures, scenarios, docs, manual pages) and
# lasercali-dev (headers, CMake package, pkg-config), and checks them with
# lintian.
#
# usage: scripts/package.sh [ARCH]
#   ARCH  amd64 (the default on an amd64 machine), arm64 or armhf; the ARM
#         packages are cross-built against the sysroot of scripts/cross.sh
#
# The packages go to out/packages/. The build folder is build-package/
# (build-package-ARCH/ for ARM): RelWithDebInfo, installed under /usr,
# stripped when packed. Exit code: 0 packages made and lintian reports no
# error; 1 lintian reports errors; 2 usage error; 3 tools could not be
# installed or the sysroot made; 4 the build or cpack failed.
set -eu
cd "$(dirname "$0")/.."

usage() { sed -n '2,/^set/p' "$0" | grep '^#' | sed 's/^# \{0,1\}//'; }
fail() { code=$1; shift; echo "package.sh: $*" >&2; exit "$code"; }

native=$(dpkg --print-architecture)
arch=""
for arg in "$@"; do
  case "$arg" in
    -h|--help) usage; exit 0 ;;
    -*) fail 2 "unknown option $arg (try --help)" ;;
    *) [ -z "$arch" ] || fail 2 "one ARCH only (try --help)"; arch=$arg ;;
  esac
done
arch=${arch:-$native}

. scripts/deps.sh
LASERCALI_PACKAGES="$LASERCALI_PACKAGES dpkg-dev file lintian"
lasercali_install_deps || fail 3 "could not install the build tools ($LASERCALI_PACKAGES)"

case "$arch" in
  "$native")
    build=build-package
    set -- ;;
  arm64|armhf)
    [ "$native" = amd64 ] || fail 2 "ARM packages are cross-built on an amd64 machine"
    triple=$( [ "$arch" = arm64 ] && echo aarch64-linux-gnu || echo arm-linux-gnueabihf )
    sysroot=$(scripts/cross.sh --sysroot-only "$arch" | tail -n 1) || fail 3 "no $arch sysroot"
    build=build-package-$arch
    # Debian's multiarch library folder, which CMake picks by itself only
    # for the build machine's own architecture.
    set -- -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/$triple.cmake" -DCMAKE_SYSROOT="$sysroot" \
      -DCMAKE_INSTALL_LIBDIR="lib/$triple" ;;
  *) fail 2 "unknown architecture '$arch': amd64, arm64 or armhf" ;;
esac

jobs=$(nproc 2>/dev/null || echo 2)
echo "== $arch packages ($build)"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
  -DLASERCALI_BUILD_TESTS=OFF -DLASERCALI_BUILD_BENCH=OFF "$@" >/dev/null || fail 4 "configuring $build failed"
cmake --build "$build" -j"$jobs" >/dev/null || fail 4 "building $build failed (run cmake --build $build to see why)"
mkdir -p out/packages
(cd "$build" && cpack -G DEB -B "$PWD/../out/packages" >cpack.log 2>&1) ||
  { cat "$build/cpack.log" >&2; fail 4 "cpack failed"; }
rm -rf out/packages/_CPack_Packages

version=$(sed -n 's/^#define LASERCALI_VERSION "\(.*\)"$/\1/p' "$build/generated/lasercali_version.h")
set --
for package in plugin calc tools dev; do
  set -- "$@" "out/packages/lasercali-${package}_${version}_$arch.deb"
done
ls -l "$@"
echo "== lintian"
lintian --fail-on error "$@" || fail 1 "lintian reports errors"
echo "== $arch packages made: $*"
