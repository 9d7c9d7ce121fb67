#!/bin/sh
# Builds the whole project for one of the robot's ARM targets and runs every
# test under qemu user emulation.
#
# usage: scripts/cross.sh [--sysroot-only] ARCH
#   ARCH            arm64 (aarch64-linux-gnu) or armhf (arm-linux-gnueabihf)
#   --sysroot-only  make (or find) the sysroot, print its path and stop
#
# Steps: install the build machine's tools if any is missing (clang, lld,
# llvm, qemu-user, mmdebstrap; no package of the target architecture is installed
# on the build machine); make a sysroot for ARCH by extracting Debian's own
# packages of that architecture; configure build-ARCH/ with the toolchain
# file cmake/toolchains/<triple>.cmake; build; run ctest, where every test
# program and every tool a test starts runs under qemu.
#
# The sysroot is kept in $LASERCALI_SYSROOT_CACHE (default
# ~/.cache/lasercali) under a name that includes a hash of its package list,
# and reused as long as that list is the same.
#
# Exit code: 0 when every test passed; 1 when a test failed; 2 on a usage
# error; 3 when the tools could not be installed or the sysroot made; 4 when
# the configure or the build failed.
set -eu
cd "$(dirname "$0")/.."

usage() { sed -n '2,/^set/p' "$0" | grep '^#' | sed 's/^# \{0,1\}//'; }
fail() { code=$1; shift; echo "cross.sh: $*" >&2; exit "$code"; }

sysroot_only=0
arch=""
for arg in "$@"; do
  case "$arg" in
    -h|--help) usage; exit 0 ;;
    --sysroot-only) sysroot_only=1 ;;
    -*) fail 2 "unknown option $arg (try --help)" ;;
    *) [ -z "$arch" ] || fail 2 "one ARCH only (try --help)"; arch=$arg ;;
  esac
done
case "$arch" in
  arm64) triple=aarch64-linux-gnu ;;
  armhf) triple=arm-linux-gnueabihf ;;
  "") fail 2 "which target? scripts/cross.sh arm64|armhf (try --help)" ;;
  *) fail 2 "unknown target '$arch': arm64 or armhf" ;;
esac

# The target's packages in the sysroot: the C and C++ runtime and headers,
# and the libraries the project builds against.
SYSROOT_PACKAGES="libc6-dev libgcc-12-dev libstdc++-12-dev libopencv-core-dev
libopencv-imgcodecs-dev libopencv-imgproc-dev libopencv-calib3d-dev rapidjson-dev libgtest-dev libbenchmark-dev"
# Bumped when the way a sysroot is made changes, so old ones are not reused.
SYSROOT_RECIPE=1

. scripts/deps.sh
LASERCALI_PACKAGES="cmake make clang lld llvm qemu-user mmdebstrap"
lasercali_install_deps || fail 3 "could not install the build machine's tools ($LASERCALI_PACKAGES)"

# --- the sysroot -----------------------------------------------------------

codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
[ -n "$codename" ] || fail 3 "cannot tell the Debian release from /etc/os-release"

# Writes the machine's own Debian sources for $codename into $1.sources
# (deb822 stanzas) and $1.list (one-line entries). With "main" as $2 the
# security suite is left out.
debian_sources() {
  out=$1 which=$2
  : >"$out.sources"
  : >"$out.list"
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] || continue
    awk -v codename="$codename" -v which="$which" '
      # A stanza is kept with the suites of this release that are wanted.
      function flush() {
        if (stanza != "" && suites != "" && enabled) printf "%s\n", stanza
        stanza = ""; suites = ""; enabled = 1
      }
      BEGIN { enabled = 1 }
      /^[ \t]*$/ { flush(); next }
      /^[ \t]*#/ { next }
      /^Architectures:/ { next }
      /^Enabled:[ \t]*no/ { enabled = 0 }
      /^Suites:/ {
        for (i = 2; i <= NF; i++) {
          if ($i != codename && index($i, codename "-") != 1) continue
          if (which == "main" && $i ~ /-security$/) continue
          suites = suites " " $i
        }
        stanza = stanza "Suites:" suites "\n"
        next
      }
      { stanza = stanza $0 "\n" }
      END { flush() }' "$f" >>"$out.sources"
  done
  for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -f "$f" ] || continue
    awk -v codename="$codename" -v which="$which" '
      $1 != "deb" { next }
      {
        suite = ""
        for (i = 2; i <= NF; i++) if ($i !~ /^\[/ && $i !~ /\]$/ && $i ~ /:\/\//) { suite = $(i + 1); break }
        if (suite != codename && index(suite, codename "-") != 1) next
        if (which == "main" && suite ~ /-security$/) next
        gsub(/arch=[^ \]]*/, "")
        gsub(/\[ *\]/, "")
        print
      }' "$f" >>"$out.list"
  done
}

# Extracts the packages (and what they depend on) into $1 from the sources
# in $2.sources / $2.list. Output goes to $1.log.
extract_packages() {
  dir=$1 sources=$2
  set --
  [ -s "$sources.sources" ] && set -- "$@" "$sources.sources"
  [ -s "$sources.list" ] && set -- "$@" "$sources.list"
  [ $# -gt 0 ] || { echo "no Debian sources for $codename in /etc/apt" >"$dir.log"; return 1; }
  rm -rf "$dir"
  mmdebstrap --variant=extract --architectures="$arch" \
    --include="$(echo $SYSROOT_PACKAGES | tr ' ' ',')" \
    "$codename" "$dir" "$@" >"$dir.log" 2>&1
}

# What extracting packages leaves out of a sysroot that a build and a
# program under qemu need.
finish_sysroot() {
  dir=$1
  # Links that point at absolute paths would lead out of the sysroot.
  find "$dir" -type l -lname '/*' | while read -r link; do
    target=$(readlink "$link")
    ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$dir$target")" "$link"
  done
  # The BLAS and LAPACK libraries OpenCV needs are reached through links
  # that Debian's alternatives system makes at install time.
  for lib in blas/libblas.so.3 lapack/liblapack.so.3; do
    [ -e "$dir/usr/lib/$triple/$lib" ] ||
      { echo "cross.sh: the sysroot has no usr/lib/$triple/$lib, which OpenCV needs" >&2; return 1; }
    ln -sfn "$lib" "$dir/usr/lib/$triple/$(basename "$lib")"
  done
  # The target's /tmp and /dev stay the build machine's: qemu would
  # otherwise look up paths under them in the sysroot first.
  rm -rf "$dir/tmp" "$dir/dev"
}

cache=${LASERCALI_SYSROOT_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/lasercali}
key=$(printf '%s\n' "$codename" "$arch" $SYSROOT_PACKAGES "$SYSROOT_RECIPE" | sha256sum | cut -c1-12)
sysroot="$cache/sysroot-$arch-$codename-$key"

if [ -f "$sysroot/.complete" ]; then
  echo "== sysroot $sysroot (reused)"
else
  echo "== sysroot $sysroot (extracting Debian $codename $arch packages)"
  mkdir -p "$cache"
  work="$sysroot.partial"
  debian_sources "$cache/sources-all" all
  debian_sources "$cache/sources-main" main
  made=0
  for attempt in 1 2; do
    if extract_packages "$work" "$cache/sources-all"; then made=1; break; fi
    echo "cross.sh: extracting from the machine's apt sources failed (attempt $attempt; $work.log):" >&2
    grep -E '^(E|W): ' "$work.log" | head -n 3 >&2 || true
    sleep 2
  done
  if [ "$made" = 0 ]; then
    echo "cross.sh: retrying without the security suite (a mirror sync in progress leaves it unreadable)" >&2
    extract_packages "$work" "$cache/sources-main" ||
      { grep -E '^(E|W): ' "$work.log" | head -n 5 >&2 || true
        fail 3 "could not extract the $arch packages; see $work.log"; }
  fi
  finish_sysroot "$work" || fail 3 "the $arch sysroot is incomplete ($work)"
  rm -rf "$sysroot"
  mv "$work" "$sysroot"
  mv "$work.log" "$sysroot.log"
  printf '%s\n' $SYSROOT_PACKAGES >"$sysroot/.complete"
fi
if [ "$sysroot_only" = 1 ]; then
  echo "$sysroot"
  exit 0
fi

# --- build and test ---------------------------------------------------------

jobs=$(nproc 2>/dev/null || echo 2)
build="build-$arch"
echo "== $arch build ($build)"
# Line tables only (-g1), as in scripts/test.sh: the same code, a quicker
# build. The shipped packages (scripts/package.sh) keep full debug information.
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/$triple.cmake" -DCMAKE_SYSROOT="$sysroot" >/dev/null ||
  fail 4 "configuring the $arch build failed"
cmake --build "$build" -j"$jobs" || fail 4 "the $arch build failed"

echo "== $arch tests under qemu"
(cd "$build" && ctest -j"$jobs" --output-on-failure) || exit 1
