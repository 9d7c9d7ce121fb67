#!/bin/sh
# Builds the plug-in alone against a stand-in robot SDK and plays a whole
# round with it, to show that the plug-in needs nothing of this tree but its
# own sources: the SDK folder is made by installing the "tools" and "dev"
# components of BUILD_DIR (among them the framework's headers and libkiv,
# the camera library's header and libsunxi_cam) into a scratch folder, and
# the plug-in is configured with -DLASERCALI_SDK pointing there.
#
# Checks: the SDK build makes the plug-in and neither host library; every
# header it compiled came from the SDK or from the node's own msgs/ and src/,
# none from the tree's framework/ or platform/; kivrun plays SCENARIO with
# that plug-in and writes EXPECTED_LOG exactly.
#
# usage: check_sdk_build.sh BUILD_DIR SOURCE_DIR KIVRUN SCENARIO EXPECTED_LOG
#                           "CMAKE_ARGUMENTS" [EMULATOR...]
#   CMAKE_ARGUMENTS  the SDK build's configure arguments, blank-separated, in one word
set -u
build=$1 source=$2 kivrun=$3 scenario=$4 expected=$5 cmake_args=$6
shift 6

work=$(mktemp -d "${TMPDIR:-/tmp}/sdk_build.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "check_sdk_build: $*"; exit 1; }

for component in tools dev; do
  cmake --install "$build" --prefix "$work/sdk" --component $component >>"$work/install.log" 2>&1 ||
    { cat "$work/install.log"; fail "installing the $component component failed"; }
done
# The SDK-built plug-in registers the same tags as the build under test.
commit=$(sed -n 's/^#define LASERCALI_GIT_COMMIT "\(.*\)"$/\1/p' "$build/generated/lasercali_version.h")
[ -n "$commit" ] || fail "no commit in $build/generated/lasercali_version.h"
# shellcheck disable=SC2086 # the configure arguments are separate words
cmake -S "$source" -B "$work/build" -DLASERCALI_SDK="$work/sdk" -DLASERCALI_GIT_COMMIT="$commit" $cmake_args \
  >"$work/configure.log" 2>&1 ||
  { cat "$work/configure.log"; fail "configuring the SDK build failed"; }
cmake --build "$work/build" -j2 >"$work/build.log" 2>&1 ||
  { cat "$work/build.log"; fail "the SDK build failed"; }

plugin="$work/build/src/liblasercali.so"
[ -f "$plugin" ] || fail "the SDK build made no $plugin"
built_hosts=$(find "$work/build" -name 'libkiv*' -o -name 'libsunxi_cam*')
[ -z "$built_hosts" ] || fail "the SDK build made host libraries: $built_hosts"

# The compiler's dependency files list every header each object read.
deps=$(find "$work/build" -name '*.o.d')
[ -n "$deps" ] || fail "the SDK build left no dependency files to check"
# shellcheck disable=SC2086
if grep -l -e "$source/framework/" -e "$source/platform/" $deps; then
  fail "the objects above read headers of the tree's framework/ or platform/"
fi
# shellcheck disable=SC2086
grep -q "$work/sdk/include/lasercali/framework/kiv.h" $deps || fail "no object read the SDK's framework/kiv.h"
# shellcheck disable=SC2086
grep -q "$work/sdk/include/lasercali/platform/sunxi_cam/sunxi_cam.h" $deps ||
  fail "no object read the SDK's sunxi_cam.h"

KIVRUN_PLUGIN="$plugin" "$(dirname "$0")/../scenarios/check_scenario.sh" \
  "$kivrun" "$scenario" "$expected" 0 "$@"
case $? in
  0) ;;
  77) exit 77 ;;  # no private /tmp for the node: skipped, as check_scenario.sh says
  *) fail "the round with the SDK-built plug-in differs" ;;
esac
echo "the plug-in built against the SDK in $work/sdk played $(basename "$scenario") as expected"
